// Collects the gateway facts every 150 s: a child process runs batctl, its output is parsed here.
//
//     idle ── 150 s ──► child running ── ends, or is killed after 30 s ──► parsed ──► idle
#pragma once

#include "mesh/gateway_facts.h"

constexpr int GATEWAY_STATS_INTERVAL_MS = 150000;
constexpr int GATEWAY_STATS_LIMIT_MS = 30000;

/// What is known of the gateway now. The upstream state machine clears it when the state changes.
extern mesh_gateway_facts gMesh_gateway_facts;

/// Arms the first collection, GATEWAY_STATS_INTERVAL_MS from now.
void mesh_gateway_stats_start();
/// Kills a running collection and stops collecting; known facts are dropped.
void mesh_gateway_stats_stop();
