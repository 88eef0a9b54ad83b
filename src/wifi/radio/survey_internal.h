// The surveyed interfaces, one a radio: survey.cpp keeps them, survey_dump.cpp shows them.
#pragma once

#include "wifi/radio/radio_internal.h"

/// Counters of the channel in use, in the driver's unit, from the interface's start on.
struct survey_sample {
    uint64_t active, busy, rx, tx;
};

struct survey_entry {
    list_head link;
    ubus_request request;
    uloop_timeout timer;
    survey_sample latest, previous;
    char ifname[16];
    int32_t radio_idx;
    bool data_generated;        ///< the last survey was answered
    int32_t survey_retry_count; ///< time-outs since the last trigger
    int timeouts_in_a_row;      ///< surveys that did not end
};

/// The data callback of a survey; the request's private pointer is the entry.
void wifi_survey_data_cb(ubus_request *req, int type, blob_attr *msg);

extern list_head gSurvey_entries;
extern uloop_timeout gSurvey_period_timer;
