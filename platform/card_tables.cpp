// SPDX-License-Identifier: Apache-2.0
// Where the M.2, IO-expander and riser cards are probed (row layouts in
// <libkv/platform.h>). Rows past the counts are spare.
#include <libkv/platform.h>

extern "C"
{
uint8_t m2_bus_config[5][5] = {
    {5, 33, 113, 35, 5}, {6, 33, 113, 35, 6}, {10, 33, 0, 35, 12}};
int32_t max_config_number = 3;

uint8_t iox_bus_config[5][5] = {
    {5, 33, 0, 0, 5}, {6, 33, 0, 0, 6}, {10, 33, 0, 0, 10}};
int32_t iox_config_number = 3;

uint8_t riser_bus_config[1][5] = {{6, 33, 113, 35, 1}};
}
