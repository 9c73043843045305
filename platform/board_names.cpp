// SPDX-License-Identifier: Apache-2.0
// Platform data, not logic: the model names of the boards this platform
// takes, indexed by the 5-bit board id of their identity byte. Names keep
// within 22 characters.
#include <libkv/platform.h>

extern "C"
{
char baord_name[32][64] = {
    "BP-4SAS-2P5-F",       // 0
    "BP-4SAS-2P5-R",       // 1
    "BP-8SAS-2P5-F",       // 2
    "BP-8SAS-2P5-R",       // 3
    "RISER-2X16-A",        // 4: riser, two x16 slots
    "BP-4NVME-2P5-F",      // 5
    "BP-4NVME-2P5-R",      // 6
    "BP-6SAS2NVME-2P5-F",  // 7
    "BP-12SAS-3P5-F",      // 8: 12-slot, front
    "BP-25SAS-2P5-F",      // 9: 25-slot, first
    "BP-8NVME-2P5-F",      // 10: 8-slot
    "BP-12SAS4NVME-3P5-F", // 11: 12-slot, mixed
    "RISER-3X8-B",         // 12: riser, three x8 slots
    "BP-2SAS-2P5-R",       // 13
    "BP-10NVME-2P5-F",     // 14: 10-slot
    "RISER-M2-1X4",        // 15: card behind the riser's multiplexer
    "IOX-4X8-A",           // 16
    "IOX-2X16-A",          // 17
    "BP-4SAS-3P5-R",       // 18
    "BP-2NVME-3P5-R",      // 19
    "BP-4NVME-2P5-M",      // 20
    "OCP-NIC3-ADP",        // 21
    "BP-6SAS-2P5-M",       // 22
    "BP-8SAS-3P5-M",       // 23
    "BP-12NVME-3P5-F",     // 24: 12-slot, NVMe
    "BP-25SAS-2P5-EXP",    // 25: 25-slot, expansion
    "M2-2X2280-RAID",      // 26: M.2 adapter
    "IOX-1X16-B",          // 27
    "BP-2SAS-3P5-R",       // 28
    "PDB-12V-A",           // 29
    "FANBD-6X-A",          // 30
    "BP-2SFF-R",           // 31: 2-slot, rear
};
}
