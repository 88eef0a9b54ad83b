// Reading scenarios; see script.h.
#include "script.h"

#include <cstdlib>
#include <fstream>

constexpr char BLANKS[] = " \t\r";

static std::string trim(const std::string &text)
{
    const size_t begin = text.find_first_not_of(BLANKS);
    if (begin == std::string::npos)
        return "";
    return text.substr(begin, text.find_last_not_of(BLANKS) - begin + 1);
}

struct reader {
    std::ifstream file;
    int line = 0;
    std::string error;

    /// The next line that says something, trimmed; false at the end of the file.
    bool next(std::string *text)
    {
        std::string raw;
        while (std::getline(file, raw)) {
            line++;
            *text = trim(raw);
            if (!text->empty() && text->front() != '#')
                return true;
        }
        return false;
    }
    bool fail(const std::string &reason)
    {
        error = "line " + std::to_string(line) + ": " + reason;
        return false;
    }
};

static bool read_block(reader *in, std::vector<std::string> *block)
{
    std::string text;
    while (in->next(&text)) {
        if (text == "end")
            return true;
        block->push_back(text);
    }
    return in->fail("'end' is missing");
}

static bool read_statements(reader *in, std::vector<statement> *out, bool nested)
{
    std::string text;
    while (in->next(&text)) {
        if (text == "end")
            return nested || in->fail("'end' without a beginning");
        statement next;
        next.line = in->line;
        next.word = cut_word(&text);
        next.rest = text;
        if (next.word == "repeat" && !read_statements(in, &next.statements, true))
            return false;
        const bool compares = next.rest == "journal" || next.rest == "changes";
        if (next.word == "expect" && compares && !read_block(in, &next.block))
            return false;
        out->push_back(next);
    }
    return !nested || in->fail("'end' is missing");
}

std::string cut_word(std::string *text)
{
    const size_t end = text->find_first_of(BLANKS);
    const std::string word = text->substr(0, end);
    *text = end == std::string::npos ? "" : trim(text->substr(end));
    return word;
}

bool script_read(const std::string &path, std::vector<statement> *script, std::string *error)
{
    reader in;
    in.file.open(path);
    if (!in.file) {
        *error = "cannot be read";
        return false;
    }
    const bool read = read_statements(&in, script, false);
    *error = in.error;
    return read;
}

long parse_duration_ms(const std::string &text)
{
    long sum = 0;
    const char *rest = text.c_str();
    do {
        char *end = nullptr;
        const double number = strtod(rest, &end);
        const char unit = end == rest ? '\0' : *end;
        const long ms = unit == 's'   ? 1000
                        : unit == 'm' ? 60000
                        : unit == 'h' ? 3600000
                        : unit == 'd' ? 86400000
                                      : 0;
        if (ms == 0 || number < 0)
            return -1;
        sum += static_cast<long>(number * static_cast<double>(ms));
        rest = end + 1;
    } while (*rest != '\0');
    return sum;
}
