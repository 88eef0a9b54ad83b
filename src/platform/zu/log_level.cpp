// The log's threshold as configured. Apart from log.cpp, so that the log itself needs no UCI.
#include "platform/zu/log.h"
#include "platform/zu/ng_uci.h"

void debug_load_level(const char *uci_option)
{
    if (!ng_uci_exists("%s", uci_option))
        return;
    int level = 0;
    if (ng_uci_get_int(&level, "%s", uci_option) != 0 || level < 0 || level > ZU_LOG_DEBUG) {
        log_warning("'%s' is not a log level from 0 to %d, keeping %d", uci_option, ZU_LOG_DEBUG,
                    gDebug_log_level);
        return;
    }
    debug_set_level(level);
}
