/* SPDX-License-Identifier: Apache-2.0 */
/* A tour of libkv's SEL handling, the way one event goes through the BMC:
 * a sensor daemon reports a threshold crossing with SensorSELWrite, the
 * record waits in a hand-off slot of the platform segment, a consumer takes
 * it from there, the decoder turns it into text with the sensor's
 * description from the same segment, the text goes into sel.log, and the
 * event is posted to a Redfish subscriber and left for the SNMP agent as a
 * trap request. Run it inside the sandbox (tools/kvsandbox): the segment,
 * the folders and the loopback interface are the BMC's own. */
#include <libkv/libkv.h>

#include <arpa/inet.h>
#include <netinet/in.h>
#include <stdio.h>
#include <stdlib.h>
#include <string.h>
#include <sys/socket.h>
#include <sys/stat.h>
#include <sys/wait.h>
#include <unistd.h>

/* Positions in the platform segment that the daemons share. */
enum
{
    SENSOR_RECORDS = 33, /* one SensorRecord per sensor number */
    SEL_SLOTS = 116547,  /* 30 slots: a state byte and 80 payload bytes */
    SEL_SLOT_SIZE = 81,
    SEL_SLOT_COUNT = 30,
    SLOT_FILLED = 1,
    SUBSCRIPTIONS = 128891, /* four EventSubscription records */
    EVENT_SUMMARY = 132239, /* EventInfo of the last decoded event */
    TRAP_SLOTS = 212504     /* 16 trap request slots of 213 bytes */
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

/* A Redfish subscriber on the loopback interface: a child process that
 * takes one request, prints it and answers 200. Returns the child's pid and
 * the port it listens on. */
static pid_t start_subscriber(int* port)
{
    struct sockaddr_in address;
    socklen_t size = sizeof address;
    int listener = socket(AF_INET, SOCK_STREAM, 0);
    pid_t pid;

    memset(&address, 0, sizeof address);
    address.sin_family = AF_INET;
    address.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
    if (listener < 0 ||
        bind(listener, (struct sockaddr*)&address, sizeof address) != 0 ||
        listen(listener, 1) != 0 ||
        getsockname(listener, (struct sockaddr*)&address, &size) != 0)
    {
        return -1;
    }
    *port = ntohs(address.sin_port);
    fflush(stdout);
    pid = fork();
    if (pid == 0)
    {
        static char request[4096];
        size_t got = 0;
        const char* body = NULL;
        const char* line;
        int client = accept(listener, NULL, NULL);
        /* Headers, then as much body as Content-Length announces. */
        while (client >= 0 && got < sizeof request - 1)
        {
            ssize_t n = read(client, request + got, sizeof request - 1 - got);
            const char* length;
            if (n <= 0)
            {
                break;
            }
            got += (size_t)n;
            request[got] = '\0';
            body = strstr(request, "\r\n\r\n");
            length = strstr(request, "Content-Length: ");
            if (body != NULL && length != NULL &&
                strlen(body + 4) >= strtoul(length + 16, NULL, 10))
            {
                break;
            }
        }
        printf("subscriber received:\n");
        for (line = request; body != NULL && line < body;)
        {
            const char* end = strstr(line, "\r\n");
            if (strncmp(line, "POST", 4) == 0 ||
                strncmp(line, "Content-Type", 12) == 0 ||
                strncmp(line, "X-Auth-Token", 12) == 0)
            {
                printf("  %.*s\n", (int)(end - line), line);
            }
            line = end + 2;
        }
        printf("  %s\n", body != NULL ? body + 4 : "(no request)");
        fflush(stdout);
        if (client >= 0)
        {
            static const char answer[] = "HTTP/1.1 200 OK\r\n"
                                         "Content-Length: 0\r\n\r\n";
            write(client, answer, sizeof answer - 1);
            close(client);
        }
        _exit(0);
    }
    close(listener);
    return pid;
}

/* What the FRU daemon publishes about the server: the posts name it by its
 * GUID and product asset tag. */
static void publish_server_identity(void)
{
    FILE* f;
    mkdir("/var/run/obmcinfo", 0755);
    f = fopen("/var/run/obmcinfo/GUID", "w");
    if (f != NULL)
    {
        fputs("8d1e5b2c-0f4a-4c1e-9a37-52c2e5d0a1f3\n", f);
        fclose(f);
    }
    f = fopen("/var/run/obmcinfo/fruinfo", "w");
    if (f != NULL)
    {
        fputs("Product Asset Tag : RACK7-U12\n", f);
        fclose(f);
    }
}

/* Forwarding: a subscriber that wants alerts of every sensor, and the
 * event ID and severity the alert daemon adds to the summary. */
static void forward_event(uint8_t* segment, const uint8_t record[16],
                          const char* text)
{
    EventSubscription sub;
    EventInfo* summary = (EventInfo*)(segment + EVENT_SUMMARY);
    int port = 0;
    pid_t subscriber = start_subscriber(&port);

    if (subscriber < 0)
    {
        printf("no subscriber\n");
        return;
    }
    memset(&sub, 0, sizeof sub);
    sub.in_use = 1;
    sub.event_types = 0x11; /* StatusChange and Alert */
    sub.every_sensor = 1;
    strcpy(sub.token, "3f9c2a");
    sprintf(sub.url, "http://127.0.0.1:%d/redfish/v1/EventService/events",
            port);
    memcpy(segment + SUBSCRIPTIONS, &sub, sizeof sub);
    summary->event_id[0] = 0x2A;
    strcpy(summary->severity, "Critical");

    /* The cookie jar "cjar" goes into the working directory. */
    if (chdir("/tmp") != 0)
    {
        return;
    }
    printf("send_event_subscriptions: %d\n",
           send_event_subscriptions(segment, record, text));
    waitpid(subscriber, NULL, 0);
}

static void request_trap(uint8_t* segment, const char* text)
{
    const uint8_t* slot = segment + TRAP_SLOTS;
    printf("snmpSendTrap: %d\n", snmpSendTrap(0x10000109, 174, 1, text));
    printf("trap slot 0: state %u, code 0x%02X%02X%02X%02X, text \"%.200s\"\n",
           slot[0], slot[7], slot[6], slot[5], slot[4], (const char*)slot + 13);
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

    publish_server_identity();
    forward_event(segment, record, text);
    request_trap(segment, text);
    return 0;
}
