/* SPDX-License-Identifier: Apache-2.0 */
/* libkv hardware access: I2C transfers and multiplexers, CPLD registers,
 * EEPROMs, GPIOs, memory fault LEDs and interface links. Plain C. */
/* errno: after a call has reported failure, errno holds the cause given by
 * the system call that failed (open, ioctl, read, write); the CPLD functions
 * keep the last attempt's cause across their retries and their log line. A
 * call refused before any system call (bad length or buffer, unknown EEPROM
 * type) leaves errno as it was, and then it means nothing. */
#ifndef LIBKV_HW_H
#define LIBKV_HW_H

#include <libkv/export.h>

#include <stddef.h>
#include <stdint.h>

KV_EXTERN_C_BEGIN

/* ---- I2C transfer layer --------------------------------------------------
 * Offsets of 1 byte send their low byte; 2 bytes go most significant first;
 * an offset length of 0 sends the data alone. Transfers return the I2C_RDWR
 * result: the number of messages on success, negative on failure. */

/* Largest data length of the offset-addressed calls. */
#define KV_I2C_MAX_DATA 253

KV_EXPORT int i2c_open(int bus);
KV_EXPORT int i2c_close(int fd);
/* Binds `addr` and writes `len` bytes; a zero-length write probes. */
KV_EXPORT int internal_master_write(int fd, unsigned addr, const void* buf,
                                    size_t len);
/* Writes the offset, then reads `len` bytes after a repeated start. `buf`
 * always receives `len` bytes (zeros when the read failed). */
KV_EXPORT int i2c_read_data(int fd, uint8_t addr, unsigned offset,
                            int offset_len, void* buf, int len);
KV_EXPORT int i2c_write_data(int fd, uint8_t addr, unsigned offset,
                             int offset_len, const void* data, int len);
KV_EXPORT int i2c_read_data_new(int fd, uint8_t addr, const void* wbuf,
                                uint16_t wlen, void* rbuf, uint16_t rlen);
/* A write of `wlen` bytes, and a read of `rlen` bytes when `rlen` is not 0. */
KV_EXPORT int i2c_rw_data(int fd, uint8_t addr, const void* wbuf, uint16_t wlen,
                          void* rbuf, int rlen);
/* Probes all 128 addresses: 1 when `addr` answers, 0 when not, -1 bad fd. */
KV_EXPORT int check_slave_active(int fd, uint8_t addr);
KV_EXPORT int i2cInit(void);
KV_EXPORT int i2cUnInit(void);
/* Results of i2cSendRecvMsg. */
enum
{
    KV_I2C_NO_BUS = -1,
    KV_I2C_ATTEMPTS_FAILED = -2
};
/* Opens `bus`, then up to `retries` attempts of a plain write and read:
 * 0, KV_I2C_NO_BUS or KV_I2C_ATTEMPTS_FAILED (every attempt). */
KV_EXPORT int i2cSendRecvMsg(int reserved, uint8_t bus, uint8_t addr,
                             const void* wbuf, uint16_t wlen, void* rbuf,
                             uint16_t rlen, uint8_t retries, int reserved2);
/* Enables only `channel` (1..8) of a PCA9546; another channel disables all. */
KV_EXPORT int set_9546switch(uint8_t bus, uint8_t mux_addr, uint8_t channel);
/* Linux bus number of `channel` (from 1) of the multiplexer on `bus`. */
KV_EXPORT int CmmFunGetI2CExtBus(int bus, int channel);

/* ---- CPLD registers ------------------------------------------------------ */

/* The module CPLD (bus 11) and the chassis-type CPLD (bus 1) answer here. */
#define KV_CPLD_ADDRESS 0x3Fu
#define KV_CPLD_MODULE_BUS 11
#define KV_CPLD_MAX_DATA 20

/* Result codes of the CPLD and record-file calls. */
enum
{
    KV_CPLD_OK = 0,
    KV_CPLD_NO_BUS = 1,       /* write_cpld_reg: the bus cannot be opened */
    KV_CPLD_BAD_REQUEST = 2,  /* bad argument, no bus, or transfer failed */
    KV_CPLD_READ_FAILED = 3,  /* after five attempts */
    KV_CPLD_WRITE_FAILED = 4, /* after five attempts */
    KV_CPLD_EVEN_PARITY = 4   /* odd_check: the parity is wrong */
};

KV_EXPORT int CPLDChannelEnable(void);
KV_EXPORT int CPLDChannelDisale(int fd);
/* Up to five attempts, 1 s apart; 0, 2 or 4. */
KV_EXPORT int CPLDModuleWriteRegister(int fd, uint8_t offset,
                                      const uint8_t* data, uint8_t len);
/* Up to five attempts, 1 s apart; 0, 2 or 3. `len` at most 20. */
KV_EXPORT int CPLDModuleReadRegister(int fd, uint8_t offset, uint8_t* buf,
                                     uint8_t len);
KV_EXPORT int CPLDModuleWriteDatas(uint8_t offset, const uint8_t* data,
                                   uint8_t len);
KV_EXPORT int CPLDModuleReadDatas(uint8_t offset, uint8_t* buf, uint8_t len);
/* One register of a device, behind multiplexer `channel` when not 0. */
KV_EXPORT int write_cpld_reg(int bus, int channel, uint8_t addr, uint8_t offset,
                             uint8_t value);
/* 0 when the lowest `bits` bits of `value` hold an odd number of ones. */
KV_EXPORT int odd_check(int value, int bits);
/* 2 or 1, from the chassis CPLD (or the 10-slot backplane result file). */
KV_EXPORT int read_chassis_type(void);

/* ---- Record files under an advisory lock --------------------------------
 * Reads always start at byte 0; writes start at `offset`. Bytes moved, or
 * -1. */

KV_EXPORT int API_ReadNVR(const char* path, int offset, size_t len,
                          uint8_t* buf);
KV_EXPORT int API_WriteNVR(const char* path, int offset, size_t len,
                           const uint8_t* buf);
/* mode 2 reads, any other mode writes. */
KV_EXPORT int ReadWriteNVR(const char* path, uint8_t* buf, int offset,
                           size_t len, uint8_t mode);

/* ---- EEPROMs through SMBus byte transactions ---------------------------- */

typedef struct eeprom
{
    const char* dev; /* device node, as given */
    int addr;        /* 7-bit address */
    int fd;          /* -1 once closed */
    int type;        /* 1: 8-bit memory address, 2: 16-bit */
} eeprom;

/* Ends the process with status 1 when the adapter lacks a byte or word
 * SMBus capability. */
KV_EXPORT int eeprom_open(const char* dev, int addr, int type, eeprom* e);
KV_EXPORT int eeprom_close(eeprom* e);
KV_EXPORT int eeprom_read_current_byte(eeprom* e);
KV_EXPORT int eeprom_read_byte(eeprom* e, unsigned mem_addr);
KV_EXPORT int eeprom_write_byte(eeprom* e, unsigned mem_addr, uint8_t value);

/* ---- GPIOs, memory fault LEDs and interface links ----------------------
 * The sysfs calls write one line ("%d\n" or "%s\n") into the attribute file
 * and return 0 when it took the whole line, -1 otherwise. */

/* Exports `gpio` under /sys/class/gpio. */
KV_EXPORT int enable_gpio(int gpio);
/* Exports `gpio` first when it is not there yet; the result is the
 * direction write's alone. `direction` is written as it is ("in", "out"). */
KV_EXPORT int set_gpio_direction(int gpio, const char* direction);
KV_EXPORT int write_gpio(int gpio, int value);
/* Sets the brightness of the LED of DIMM `dimm`, module `module` of CPU
 * `cpu`. Always 0: a missing LED is not an error. */
KV_EXPORT int CmmFunMemFaultLed(uint8_t cpu, uint8_t dimm, uint8_t module,
                                uint8_t brightness);

/* The interface calls cut names to 15 characters, return the request's
 * result (0 on success), -1 for a NULL argument or when no socket can be
 * made, and report failures with perror. */

/* `up` 0 takes the interface down, 1 brings it up; other values write the
 * flags back as they were read. */
KV_EXPORT int if_updown(const char* ifname, int up);
/* Sets the Ethernet hardware address (6 bytes). */
KV_EXPORT int set_mac_addr(const char* ifname, const uint8_t mac[6]);

KV_EXTERN_C_END

#endif
