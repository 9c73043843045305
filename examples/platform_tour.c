/* SPDX-License-Identifier: Apache-2.0 */
/* A tour of libkv's platform discovery: the backplane detectors, the card
 * detection sequence and the riser, then the files they publish for the
 * other daemons. Run it under kvsim with the example board
 * (sim/boards/example.json), or on a BMC. */
#include <libkv/libkv.h>

#include <dirent.h>
#include <stdio.h>
#include <string.h>
#include <sys/stat.h>
#include <unistd.h>

/* /var/run is /run on the BMC: one folder holds every result. */
static const char* const result_dir = "/run/backplane";

/* The detectors append to their files: a new detection starts from none. */
static void remove_earlier_results(void)
{
    char path[512];
    struct dirent* entry;
    DIR* dir;

    mkdir(result_dir, 0755);
    dir = opendir(result_dir);
    if (dir == NULL)
    {
        return;
    }
    while ((entry = readdir(dir)) != NULL)
    {
        if (entry->d_name[0] != '.')
        {
            snprintf(path, sizeof path, "%s/%s", result_dir, entry->d_name);
            unlink(path);
        }
    }
    closedir(dir);
}

/* On a BMC the error log is there from the first boot on; here it is made,
 * so that the failed probes' lines land in it. */
static void make_error_log(void)
{
    char folder[64];
    char* slash;

    snprintf(folder, sizeof folder, "%s", log_path[KV_LOG_ERROR]);
    for (slash = strchr(folder + 1, '/'); slash != NULL;
         slash = strchr(slash + 1, '/'))
    {
        *slash = '\0';
        mkdir(folder, 0755);
        *slash = '/';
    }
    create_and_write_file(log_path[KV_LOG_ERROR], NULL);
}

static void detect(void)
{
    printf("2-slot backplane, bus 5: %d\n",
           f2p_backpalne_detect(0, 31, 5, 0x3f, 0));
    printf("8-slot backplane, bus 6: %d\n",
           f8p_backpalne_detect(1, 10, 6, 0x3f, 0));
    printf("12-slot backplane, bus 19: %d\n",
           f12p_backpalne_detect(0, 8, 19, 0x3f, 0));
    printf("25-slot backplane, bus 3 (none fitted): %d\n",
           f25p_backpalne_detect(0, 9, 3, 0x3f, 0));
    printf("M.2 and IO-expander cards, 10-slot backplane: %d\n",
           backplane_board_detect());
    printf("riser: %d\n", riser_card_detect());
}

/* JSON files as they are; the binary files as their count and entries. */
static void print_file(const char* path, int json)
{
    unsigned char bytes[64];
    FILE* file = fopen(path, "rb");
    size_t n;
    size_t i;

    if (file == NULL)
    {
        return;
    }
    printf("---- %s\n", path);
    if (json)
    {
        while ((n = fread(bytes, 1, sizeof bytes, file)) > 0)
        {
            fwrite(bytes, 1, n, stdout);
        }
        printf("\n");
    }
    else
    {
        n = fread(bytes, 1, sizeof bytes, file);
        for (i = 0; i < n; ++i)
        {
            printf("%02x%s", bytes[i], i % 4 == 3 ? " " : "");
        }
        printf("\n");
    }
    fclose(file);
}

static void print_results(void)
{
    static const char* const names[] = {
        "/var/run/backplane/2p0.json",  "/var/run/backplane/8p1.json",
        "/var/run/backplane/12p0.json", "/var/run/backplane/25p0.json",
        "/var/run/backplane/10p0.json",
    };
    size_t i;

    for (i = 0; i < sizeof names / sizeof names[0]; ++i)
    {
        print_file(names[i], 1);
    }
    print_file("/run/backplane/mp2_bus_config", 0);
    print_file("/run/backplane/iox_bus_config", 0);
    print_file("/var/run/backplane/riser_bus_config", 0);
    print_file(log_path[KV_LOG_ERROR], 1);
}

int main(void)
{
    remove_earlier_results();
    make_error_log();
    detect();
    print_results();
    printf("chassis type now: %d\n", read_chassis_type());
    return 0;
}
