// One walk over the text beside json-c, which drops the earlier ones of equal keys without a word.
#include "json_text.h"

#include <algorithm>
#include <cstring>
#include <set>

class key_walk {
public:
    explicit key_walk(std::string_view text) : text_(text) {}

    std::vector<finding> repeated()
    {
        walk_value("");
        return std::move(findings_);
    }

private:
    std::string_view text_;
    size_t at_ = 0;
    std::vector<finding> findings_;

    char skip_space()
    {
        while (at_ < text_.size() && strchr(" \t\r\n", text_[at_]))
            at_++;
        return at_ < text_.size() ? text_[at_] : '\0';
    }

    /// The text between the quotes; escapes as they stand.
    std::string walk_text()
    {
        const size_t begin = ++at_;
        while (at_ < text_.size() && text_[at_] != '"')
            at_ += text_[at_] == '\\' ? 2 : 1;
        const std::string_view found = text_.substr(begin, at_ - begin);
        at_++;
        return std::string(found);
    }

    void walk_member(const std::string &path, std::set<std::string> &keys)
    {
        const size_t begin = at_;
        const std::string key = walk_text();
        const std::string member = path.empty() ? key : path + "." + key;
        if (!keys.insert(key).second)
            findings_.push_back(
                {member,
                 "stands twice, again at " + json_place(text_, begin) + ": the last one counts",
                 nullptr,
                 {}});
        skip_space();
        at_++; // the colon
        walk_value(member);
    }

    /// An object or an array, from its opening bracket to its closing one.
    void walk_container(const std::string &path, char closing)
    {
        std::set<std::string> keys;
        size_t index = 0;
        at_++;
        while (skip_space() != closing && at_ < text_.size()) {
            if (text_[at_] == ',')
                at_++;
            else if (closing == '}')
                walk_member(path, keys);
            else
                walk_value(path + "[" + std::to_string(index++) + "]");
        }
        at_++;
    }

    void walk_value(const std::string &path)
    {
        switch (skip_space()) {
        case '{':
            walk_container(path, '}');
            break;
        case '[':
            walk_container(path, ']');
            break;
        case '"':
            (void)walk_text();
            break;
        default:
            at_ = std::min(text_.find_first_of(",]} \t\r\n", at_), text_.size());
        }
    }
};

std::string json_place(std::string_view text, size_t byte)
{
    const std::string_view before = text.substr(0, byte);
    const size_t newline = before.rfind('\n');
    const size_t column = newline == before.npos ? before.size() : before.size() - newline - 1;
    return "line " + std::to_string(std::count(before.begin(), before.end(), '\n') + 1) +
           ", column " + std::to_string(column + 1);
}

std::vector<finding> json_repeated_keys(std::string_view text)
{
    return key_walk(text).repeated();
}
