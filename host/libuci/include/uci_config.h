/* Build-time choices of libuci; this build has the file backend only. */
#pragma once

#define UCI_PREFIX "/usr"
