/* SPDX-License-Identifier: Apache-2.0 */
/* A short tour of libkv's foundation, written in C as a daemon would use it:
 * classified and trace logs, key=value files, a sensor threshold edit and
 * the CRC-16s. Run it inside the sandbox (tools/kvsandbox): it writes the
 * BMC's fixed paths. */
#include <libkv/libkv.h>

#include <stdio.h>
#include <string.h>
#include <sys/stat.h>

static void show(const char* title, const char* path)
{
    char text[4096] = "";
    printf("---- %s (%s)\n", title, path);
    if (read_all_file(path, text, sizeof text) == 0)
    {
        printf("%s\n", text);
    }
    else
    {
        printf("(cannot read)\n");
    }
}

static void tour_logs(void)
{
    mkdir("/run/BMCInfo", 0755);
    mkdir("/run/BMCInfo/Development", 0755);
    mkdir("/run/BMCInfo/Development/Log", 0755);
    mkdir("/run/BMCInfo/Development/Log/bmc", 0755);

    log_call(KV_LOG_ERROR,
             "Write cpld register failed address=%u offset=%u. %s:%d %s", 63u,
             2u, "cpld-rw-reg", 120, "CPLDModuleWriteRegister");
    log_call(KV_LOG_DEBUG, "not written: /tmp/debug.log is absent");
    create_and_write_file("/tmp/debug.log", NULL);
    log_call(KV_LOG_DEBUG, "written: the debug gate is open");
    show("error log", log_path[KV_LOG_ERROR]);
    show("debug log", log_path[KV_LOG_DEBUG]);

    veldmarke_log("user %s admitted on %s", "admin", "web");
    show("trace log", "/tmp/log");
}

static void tour_conf_files(void)
{
    const char* conf = "/etc/oem_bmc.conf";
    char value[128] = "";

    write_conf_value(conf, "snmp_port", "161");
    write_conf_value(conf, "snmp_enable", "1");
    write_conf_value(conf, "snmp_port", "1161");
    read_conf_value(conf, "snmp_port", value);
    printf("---- key=value: snmp_port is now %s\n", value);
    delete_conf_value_safe(conf, "snmp_enable", '=');
    show("key=value file", conf);

    mkdir("/etc/default", 0755);
    mkdir("/etc/default/obmc", 0755);
    mkdir("/etc/default/obmc/hwmon", 0755);
    writeFile("/etc/default/obmc/hwmon/oem.conf",
              "LABEL_3=cpu_temp\nCRITHI_3=90000\nWARNHI_3=85000\n");
    write_to_oem_conf(3, "cpu_temp", KV_THRESHOLD_CRIT_HIGH, 95000);
    show("threshold file", "/etc/default/obmc/hwmon/oem.conf");
}

static void tour_crc(void)
{
    const char* check = "123456789";
    uint8_t header[64];
    unsigned i;

    for (i = 0; i < sizeof header; ++i)
    {
        header[i] = (uint8_t)i;
    }
    printf("---- CRC-16/XMODEM of \"%s\": 0x%04X\n", check,
           calc_crc16((const uint8_t*)check, (int)strlen(check)));
    printf("---- header CRC (check field skipped): 0x%04X\n",
           CalculateHeaderCrc16(0, header, sizeof header));
}

int main(void)
{
    tour_logs();
    tour_conf_files();
    tour_crc();
    return 0;
}
