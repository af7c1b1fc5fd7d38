#pragma once

#include <QDateTime>
#include <QJsonObject>
#include <QString>
#include <QUuid>
#include <optional>

namespace kavel::service {

// The reply to a successful sign-in.
struct AuthTokens
{
    QString accessToken;
    QString refreshToken;
    qint64 expiresIn = 0;
    std::optional<QString> tokenType;

    static AuthTokens fromJson(const QJsonObject &object);
    QJsonObject toJson() const;
};

// The signed-in user's profile.
struct User
{
    QUuid id;
    std::optional<QString> phone;
    std::optional<QString> email;
    std::optional<QString> nickname;
    // Only a wire key spelled exactly "avatarURL" fills this: "avatar_url" arrives as
    // "avatarUrl" after key conversion and is ignored.
    std::optional<QString> avatarURL;
    QDateTime createdAt;

    static User fromJson(const QJsonObject &object);
    QJsonObject toJson() const;
    friend bool operator==(const User &, const User &) = default;
};

} // namespace kavel::service
