// The health of the node as far as this daemon knows it.
#pragma once

/// Begins to look at the facts, every minute from now on.
void wifi_health_start();
