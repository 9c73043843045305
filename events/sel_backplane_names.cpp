// SPDX-License-Identifier: Apache-2.0
// The platform's list of backplane boards, by the drive zone that drive
// slot events name in the high half of event data 2. Zone 0 is an
// unidentified backplane; zones 8 and 9 are not fitted on this platform.
#include <libkv/events.h>

char bpHddLocateName[10][30] = {
    "UNKOWN",
    "2P BACK PLANE",
    "8P BACK PLANE",
    "12P BACK PLANE",
    "25P BACK PLANE",
    "2P 3.5 BACK PLANE",
    "10P BACK PLANE",
    "12P 3.5 BACK PLANE",
    "",
    "",
};
