#include "languages.h"

#include <algorithm>
#include <cctype>
#include <map>

namespace kavel::server {

namespace {

std::string lowered(std::string text)
{
    std::transform(text.begin(), text.end(), text.begin(),
                   [](unsigned char c) { return static_cast<char>(std::tolower(c)); });
    return text;
}

std::string primary(const std::string &tag)
{
    return lowered(tag.substr(0, tag.find('-')));
}

std::string trimmed(const std::string &text)
{
    const size_t first = text.find_first_not_of(" \t");
    if (first == std::string::npos)
        return {};
    return text.substr(first, text.find_last_not_of(" \t") - first + 1);
}

} // namespace

bool isLanguageTag(const std::string &text)
{
    if (text.empty() || text.size() > 35)
        return false;
    const std::string first = text.substr(0, text.find('-'));
    if (first.size() < 2 || first.size() > 3
        || !std::all_of(first.begin(), first.end(),
                        [](unsigned char c) { return std::isalpha(c); }))
        return false;
    if (text.back() == '-' || text.find("--") != std::string::npos)
        return false;
    return std::all_of(text.begin(), text.end(),
                       [](unsigned char c) { return std::isalnum(c) || c == '-'; });
}

std::optional<std::vector<std::string>> parseLanguageList(const std::string &text)
{
    std::vector<std::string> tags;
    size_t start = 0;
    while (start <= text.size()) {
        const size_t comma = std::min(text.find(',', start), text.size());
        const std::string tag = lowered(trimmed(text.substr(start, comma - start)));
        if (!isLanguageTag(tag))
            return std::nullopt;
        if (std::find(tags.begin(), tags.end(), tag) == tags.end())
            tags.push_back(tag);
        start = comma + 1;
    }
    return tags;
}

std::optional<std::string> matchLanguage(const std::string &wanted,
                                         const std::vector<std::string> &supported)
{
    for (const std::string &tag : supported) {
        if (lowered(tag) == lowered(wanted))
            return tag;
    }
    for (const std::string &tag : supported) {
        if (primary(tag) == primary(wanted))
            return tag;
    }
    return std::nullopt;
}

LanguageChoice chooseLanguage(const std::string &asked, const std::vector<std::string> &supported)
{
    if (asked.empty())
        return {supported.front(), {}};
    if (!isLanguageTag(asked))
        return {{}, "识别语言代码无效：" + asked.substr(0, 40)};
    if (const auto tag = matchLanguage(asked, supported))
        return {*tag, {}};
    const std::string name = chineseLanguageName(asked);
    return {{}, "此服务暂不支持识别" + name + "，请联系管理员配置" + name + "识别"};
}

std::string chineseLanguageName(const std::string &tag)
{
    static const std::map<std::string, std::string> names {
        {"zh", "中文"},     {"yue", "粤语"},    {"en", "英文"},   {"ja", "日文"},
        {"ko", "韩文"},     {"fr", "法文"},     {"de", "德文"},   {"es", "西班牙文"},
        {"pt", "葡萄牙文"}, {"it", "意大利文"}, {"ru", "俄文"},   {"ar", "阿拉伯文"},
        {"hi", "印地文"},   {"th", "泰文"},     {"vi", "越南文"}, {"id", "印度尼西亚文"},
        {"ms", "马来文"},   {"tr", "土耳其文"}, {"nl", "荷兰文"}, {"pl", "波兰文"},
        {"uk", "乌克兰文"}, {"sv", "瑞典文"},   {"bo", "藏文"},   {"ug", "维吾尔文"},
        {"mn", "蒙古文"},
    };
    const auto it = names.find(primary(tag));
    return it == names.end() ? tag : it->second;
}

} // namespace kavel::server
