/* SPDX-License-Identifier: Apache-2.0 */
/* A tour of libkv's hardware access on a board: CPLD registers, the
 * chassis type, a multiplexer channel and the EEPROM behind it, and a
 * storage record through its FIFO. Run it under kvsim with the example
 * board (sim/boards/example.json), or on a BMC. */
#include <libkv/libkv.h>

#include <fcntl.h>
#include <stdio.h>
#include <string.h>
#include <sys/stat.h>
#include <unistd.h>

static void tour_cplds(void)
{
    uint8_t version[2] = {0, 0};
    int result = CPLDModuleReadDatas(0, version, sizeof version);
    printf("module CPLD (bus %d, 0x%02X): result %d, version %u.%u\n",
           KV_CPLD_MODULE_BUS, KV_CPLD_ADDRESS, result, version[0], version[1]);
    printf("chassis type: %d\n", read_chassis_type());
    printf("identity byte 0x8a has %s parity\n",
           odd_check(0x8a, 8) == 0 ? "odd (valid)" : "even (invalid)");
}

static void tour_mux_and_eeprom(void)
{
    const uint8_t fru_bus = (uint8_t)CmmFunGetI2CExtBus(13, 1);
    eeprom part;
    char dev[32];
    int i;

    printf("channel 1 of the PCA9546 on bus 13 is bus %u\n", fru_bus);
    printf("select channel 1: %d\n", set_9546switch(13, 0x70, 1));

    snprintf(dev, sizeof dev, "/dev/i2c-%u", fru_bus);
    if (eeprom_open(dev, 0x51, 2, &part) != 0)
    {
        printf("cannot open the FRU EEPROM on %s\n", dev);
        return;
    }
    for (i = 0; i < 4; ++i)
    {
        eeprom_write_byte(&part, (unsigned)i, (uint8_t)("FRU!"[i]));
    }
    printf("FRU EEPROM bytes 0-3:");
    for (i = 0; i < 4; ++i)
    {
        printf(" %c", eeprom_read_byte(&part, (unsigned)i));
    }
    printf("\n");
    eeprom_close(&part);
}

static void tour_storage_fifo(void)
{
    uint8_t received[257];
    uint32_t code;
    int holder;

    mkdir("/run/fifo", 0755);
    AddQueue("/run/fifo/storage_w", 0664);
    /* A pipe keeps its data only while it is open somewhere: the storage
     * daemon holds it open; here a descriptor of our own plays that part. */
    holder = GetQueue("/run/fifo/storage_w", O_RDWR, 0);
    send_storage_func(0x00010203, "disk", 4);
    recv_storage_func(received, 0, 0);
    close(holder);
    memcpy(&code, received + 1, sizeof code);
    printf("storage record: code 0x%08X, %u payload bytes\n", code,
           received[0]);
}

int main(void)
{
    tour_cplds();
    tour_mux_and_eeprom();
    tour_storage_fifo();
    return 0;
}
