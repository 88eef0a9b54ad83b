// What the files of this folder share.
#pragma once

/// Arms the next collection of gateway statistics.
void mesh_statistics_arm();
/// Stops collecting; a running child is killed and forgotten.
void mesh_statistics_abandon();
