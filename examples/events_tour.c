/* SPDX-License-Identifier: Apache-2.0 */
/* A tour of libkv's SEL handling, the way one event goes through the BMC:
 * a sensor daemon reports a threshold crossing with SensorSELWrite, the
 * record waits in a hand-off slot of the platform segment, a consumer takes
 * it from there, the decoder turns it into text with the sensor's
 * description from the same segment, and the text goes into sel.log. Run it
 * inside the sandbox (tools/kvsandbox): the segment and the folders are the
 * BMC's own. */
#include <libkv/libkv.h>

#include <stdio.h>
#include <string.h>
#include <sys/stat.h>

/* Positions in the platform segment that the daemons share. */
enum
{
    SENSOR_RECORDS = 33, /* one SensorRecord per sensor number */
    SEL_SLOTS = 116547,  /* 30 slots: a state byte and 80 payload bytes */
    SEL_SLOT_SIZE = 81,
    SEL_SLOT_COUNT = 30,
    SLOT_FILLED = 1,
    EVENT_SUMMARY = 132239 /* EventInfo of the last decoded event */
};

static const uint8_t cpu_temp = 0x31;

/* What the sensor daemon publishes about its sensor: reading = (M * raw +
 * B) * 10^K2 in degrees C. */
static void describe_sensor(uint8_t* segment)
{
    SensorRecord sensor;
    const double b = 0.0;

    memset(&sensor, 0, sizeof sensor);
    sensor.multiplier[0] = 5; /* M = 5, little-endian */
    memcpy(sensor.offset, &b, sizeof b);
    sensor.result_exponent = -1; /* K2 */
    strcpy(sensor.name, "CPU0 Temp");
    sensor.base_unit = 1; /* degrees C; analog format 0: unsigned */
    memcpy(segment + SENSOR_RECORDS + sizeof sensor * cpu_temp, &sensor,
           sizeof sensor);
}

/* The consumer's side: the first filled slot's record, and the slot set
 * free again. */
static int take_record(uint8_t* segment, uint8_t record[16])
{
    int slot;
    for (slot = 0; slot < SEL_SLOT_COUNT; ++slot)
    {
        uint8_t* state = segment + SEL_SLOTS + SEL_SLOT_SIZE * slot;
        if (*state == SLOT_FILLED)
        {
            memcpy(record, state + 1, 16);
            *state = 0;
            return slot;
        }
    }
    return -1;
}

static void show_record(const uint8_t record[16])
{
    int i;
    for (i = 0; i < 16; ++i)
    {
        printf("%02X%s", record[i], i == 15 ? "\n" : " ");
    }
}

static void show_file(const char* path)
{
    char text[1024] = "";
    FILE* f = fopen(path, "rb");
    size_t n;
    if (f == NULL)
    {
        printf("(cannot read %s)\n", path);
        return;
    }
    n = fread(text, 1, sizeof text - 1, f);
    fclose(f);
    text[n] = '\0';
    printf("---- %s (%lu bytes, lines end in CR LF)\n%s", path,
           (unsigned long)n, text);
}

int main(void)
{
    uint8_t* segment = get_shm_address();
    uint8_t record[16];
    char text[512] = "";
    char web_text[512] = "";
    SensorRecord sensor;
    EventInfo summary;
    int slot;

    if (segment == NULL)
    {
        printf("no platform segment\n");
        return 1;
    }
    describe_sensor(segment);

    /* 87.0 degrees C went over the upper critical threshold of 85.0: raw
     * readings 174 and 170. Data 1 0x59: data 2 holds the reading, data 3
     * the threshold, offset 9 "upper critical going high". */
    printf("SensorSELWrite: %d\n",
           SensorSELWrite(segment, cpu_temp, 0, 0x01, 0x01, 0x59, 174, 170));
    slot = take_record(segment, record);
    printf("taken from slot %d: ", slot);
    show_record(record);

    if (ipmi_parse_sel_entry(record, 0, segment, text) != 0)
    {
        printf("record refused\n");
        return 1;
    }
    printf("text: %s\n", text);

    /* The web daemon's decoder gives the same text from its own copy of the
     * description. */
    memcpy(&sensor, segment + SENSOR_RECORDS + sizeof sensor * cpu_temp,
           sizeof sensor);
    web_parse_sel_entry(record, 0, sensor, web_text);
    printf("web text is the same: %s\n",
           strcmp(text, web_text) == 0 ? "yes" : "no");

    memcpy(&summary, segment + EVENT_SUMMARY, sizeof summary);
    printf("summary: sensor 0x%02x, \"%.32s\", \"%.32s\", \"%.32s\"\n",
           summary.sensor_number, summary.sensor_name, summary.sensor_type,
           summary.timestamp);

    /* The record's own time names the archive if this line fills the log.
     * /var/log is there on a BMC; the sandbox starts with an empty /var. */
    mkdir("/var/log", 0755);
    printf("save_sel_to_file: %d\n",
           save_sel_to_file(1, 0x4EFFA2E1, 2, text, "/var/log/sel"));
    show_file("/var/log/sel/sel.log");
    return 0;
}
