#pragma once

#include <optional>
#include <string>
#include <vector>

namespace kavel::server {

// Recording languages are BCP 47 tags ("zh", "en", "zh-Hans-CN"). A recogniser declares
// the ones it hears; a request names one.

// Letters, digits and hyphens only, starting with two or three letters: it is put into a
// shell command and a file name, so nothing else may pass.
bool isLanguageTag(const std::string &text);

// "zh, EN ,ja" as {"zh", "en", "ja"}; nullopt when any entry is not a tag or none is given.
std::optional<std::vector<std::string>> parseLanguageList(const std::string &text);

// The supported tag a request for `wanted` is served with: the same tag, or one that
// shares its primary language ("zh-CN" is served by "zh", "en" by "en-US"). Case does not
// matter. nullopt when the recogniser cannot hear it.
std::optional<std::string> matchLanguage(const std::string &wanted,
                                         const std::vector<std::string> &supported);

// The supported tag an upload that asks for `asked` is recognised in (the first when it
// asks for none), or the reason the user is told why it is refused.
struct LanguageChoice
{
    std::string tag;
    std::string refusal;
};
LanguageChoice chooseLanguage(const std::string &asked, const std::vector<std::string> &supported);

// The language's name as a Chinese speaker says it ("中文", "英文"), or the tag itself
// for one the service has no name for.
std::string chineseLanguageName(const std::string &tag);

} // namespace kavel::server
