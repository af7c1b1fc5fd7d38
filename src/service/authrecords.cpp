#include "authrecords.h"

#include "model/jsonfields.h"
#include "wirecoding.h"

namespace kavel::service {

using namespace Qt::StringLiterals;

namespace {

void insertOptional(QJsonObject &object, QLatin1StringView key, const std::optional<QString> &value)
{
    if (value)
        object.insert(key, *value);
}

} // namespace

AuthTokens AuthTokens::fromJson(const QJsonObject &object)
{
    AuthTokens tokens;
    tokens.accessToken = json::requiredString(object, "accessToken"_L1);
    tokens.refreshToken = json::requiredString(object, "refreshToken"_L1);
    tokens.expiresIn = json::requiredInt64(object, "expiresIn"_L1);
    tokens.tokenType = json::optionalString(object, "tokenType"_L1);
    return tokens;
}

QJsonObject AuthTokens::toJson() const
{
    QJsonObject object {{"accessToken"_L1, accessToken},
                        {"refreshToken"_L1, refreshToken},
                        {"expiresIn"_L1, expiresIn}};
    insertOptional(object, "tokenType"_L1, tokenType);
    return object;
}

User User::fromJson(const QJsonObject &object)
{
    User user;
    user.id = json::requiredUuid(object, "id"_L1);
    user.phone = json::optionalString(object, "phone"_L1);
    user.email = json::optionalString(object, "email"_L1);
    user.nickname = json::optionalString(object, "nickname"_L1);
    user.avatarURL = json::optionalString(object, "avatarURL"_L1);
    user.createdAt = wire::requiredDate(object, "createdAt"_L1);
    return user;
}

QJsonObject User::toJson() const
{
    QJsonObject object {{"id"_L1, json::uuidString(id)}};
    insertOptional(object, "phone"_L1, phone);
    insertOptional(object, "email"_L1, email);
    insertOptional(object, "nickname"_L1, nickname);
    insertOptional(object, "avatarURL"_L1, avatarURL);
    object.insert("createdAt"_L1, wire::encodeDate(createdAt));
    return object;
}

} // namespace kavel::service
