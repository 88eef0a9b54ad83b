// libraries: tarn_zu
// A batch file's text through the parser. What it takes apart must be writable again, and what is
// written must come apart into the same commands.
#include <cstdint>
#include <cstdlib>

#include "platform/zu/uci/batch_text.h"

static bool same(const ng_uci_batch_command &a, const ng_uci_batch_command &b)
{
    return a.action == b.action && a.name == b.name && a.value == b.value;
}

extern "C" int LLVMFuzzerTestOneInput(const uint8_t *data, size_t size)
{
    std::vector<ng_uci_batch_command> commands, again;
    if (ng_uci_batch_parse({reinterpret_cast<const char *>(data), size}, commands) != 0)
        return 0;
    std::string text, line;
    for (const ng_uci_batch_command &command : commands) {
        if (!ng_uci_batch_format(command, line))
            abort();
        text += line;
    }
    if (ng_uci_batch_parse(text, again) != 0 || again.size() != commands.size())
        abort();
    for (size_t i = 0; i < again.size(); i++)
        if (!same(commands[i], again[i]))
            abort();
    return 0;
}
