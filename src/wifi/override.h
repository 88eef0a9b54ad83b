// The local radio override: radios have left what the cloud configured, and its documents are
// refused until the cloud shows that it knows.
#pragma once

struct settings_values;
struct wifi_parsed_document;
struct wifi_settings;

/// True while a local radio override blocks the cloud's radio settings.
bool wifi_radio_override_active();
/// Ends the local radio override in the live record; wifi_radio_override_delete() takes it out of
/// UCI.
void wifi_radio_override_clear();
/// To be called with a record read anew from UCI: the override that the live record has, or has
/// ended, counts as long as it could not be committed.
void wifi_radio_override_keep(wifi_settings *fresh);
/// Takes an override that has ended out of UCI, committed; one that has begun since stays. False
/// when it failed (logged) and is to be tried again.
[[nodiscard]] bool wifi_radio_override_delete();
/// What a document says about overrides, after everything it says about radios: the nonce of the
/// one in force ends that; `lonely_friend` or `orphan_connect` ask for one; one that stays in force
/// refuses the document. False when it is refused (logged).
[[nodiscard]] bool wifi_override_parse(const settings_values &values, wifi_parsed_document *parsed);

/// Records a local radio override in `settings` and in UCI: from now on the cloud's documents are
/// refused until one repeats the nonce made here, or brings an override of its own. `reason` is
/// "lonely", "orphan_connect" or "dfs channel switch". The caller commits.
void wifi_set_radio_override(const char *reason, wifi_settings *settings);
/// Records one in the live record and commits it; what cannot be committed now is tried again.
void wifi_radio_override_record(const char *reason);
