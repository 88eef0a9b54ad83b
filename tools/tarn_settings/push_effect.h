// What a change of the configuration sets in motion on an access point.
#pragma once

#include "config_record.h"

/// A radio that is set up anew.
struct radio_restart {
    std::string radio;
    bool own_options;                    ///< an option of the radio itself changes
    bool removed;                        ///< its section is taken out
    std::vector<std::string> interfaces; ///< those of its interfaces that change
};

struct push_effect {
    config_changes changes;
    std::vector<std::string> services; ///< that reload, in alphabetical order, each once
    std::vector<radio_restart> radios;
};

/// `also_reloads` is a service that is reloaded whatever changes, or null.
push_effect effect_of(const config_record &before, const config_record &after,
                      const char *also_reloads);
