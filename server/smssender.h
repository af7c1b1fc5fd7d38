#pragma once

#include <string>

namespace kavel::server {

// Delivers sign-in codes. A deployment plugs in its SMS gateway here; the default, for
// running the whole product on one machine, writes the code to the server log.
class SmsSender
{
public:
    virtual ~SmsSender() = default;
    virtual void send(const std::string &phone, const std::string &code) = 0;
};

class LogSmsSender final : public SmsSender
{
public:
    void send(const std::string &phone, const std::string &code) override;
};

} // namespace kavel::server
