/* SPDX-License-Identifier: Apache-2.0 */
/* A tour of libkv's service settings, the way the BMC's web pages change
 * them: the SNMP agent's port, community and versions in snmpd.conf, and the
 * alert mail settings in the mail client's nail.rc. Run it inside the
 * sandbox (tools/kvsandbox): /etc and /var are the BMC's own there, and the
 * host's are left alone. */
#include <libkv/libkv.h>

#include <stdio.h>
#include <string.h>
#include <sys/stat.h>

/* The agent's file as the BMC image ships it. */
static const char base_snmpd_conf[] =
    "agentaddress  udp:161\n"
    "com2sec  mynetwork   default   public\n"
    "\n"
    "#       groupName      securityModel securityName\n"
    "\n"
    "view    all            included      .1\n"
    "access  my_group  \"\"  any  noauth  exact  all  none  none\n"
    "createUser monitor SHA-256 monitorpass1 AES\n"
    "rouser monitor\n";

static void show_file(const char* path)
{
    char text[2048] = "";
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
    printf("---- %s\n%s", path, text);
}

static void snmp_tour(void)
{
    FILE* f;
    uint16_t port = 0;
    char community[128] = "";
    bool v1 = false;
    bool v2c = false;
    SNMP_V3_USER* users = NULL;
    const SNMP_V3_USER* user;

    mkdir("/etc/snmp", 0755);
    f = fopen("/etc/snmp/snmpd.conf", "w");
    if (f == NULL)
    {
        printf("(cannot write /etc/snmp/snmpd.conf)\n");
        return;
    }
    fputs(base_snmpd_conf, f);
    fclose(f);

    printf("snmp_service_port_set(1161): %d\n", snmp_service_port_set(1161));
    printf("snmp_community_set(\"bmc-monitor\"): %d\n",
           snmp_community_set("bmc-monitor"));
    printf("snmp_ver_status_set(v2c, on): %d\n",
           snmp_ver_status_set(SNMP_VERSION_V2C, true));
    printf("snmp_community_set(\"two words\"): %d\n",
           snmp_community_set("two words"));

    snmp_service_port_get(&port);
    snmp_community_get(community, sizeof community);
    snmp_v1_status_get(&v1);
    snmp_v2_status_get(&v2c);
    printf("port %u, community %s, v1 %s, v2c %s\n", (unsigned)port, community,
           v1 ? "on" : "off", v2c ? "on" : "off");
    snmp_v3_user_get(&users);
    for (user = users; user != NULL; user = user->next)
    {
        printf("v3 user %s: %s, %s\n", user->name,
               snmp_v3_authen_itoa(user->authen),
               snmp_v3_encrypt_itoa(user->encrypt));
    }
    snmp_v3_user_free(&users);
    show_file("/etc/snmp/snmpd.conf");
}

static void mail_tour(void)
{
    MailConfig config;
    MailConfig back;
    const uint8_t level[4] = {2, 0, 0, 0};
    const uint8_t on[4] = {1, 0, 0, 0};
    uint8_t port[4];

    memset(&config, 0, sizeof config);
    strcpy(config.user, "alerts@bmc.example");
    strcpy(config.server, "192.0.2.10");
    strcpy(config.password, "s3cr3t");
    strcpy(config.recipients[0], "ops@example.com");
    strcpy(config.recipients[1], "oncall@example.com");
    strcpy(config.active, "on");
    memcpy(config.error_level, level, sizeof level);
    memcpy(config.tls, on, sizeof on); /* port 0: the SMTPS default */
    memcpy(config.authentication, on, sizeof on);

    /* /var/lib/ipmi is there on a BMC; the sandbox starts with an empty
     * /var. */
    mkdir("/var/lib", 0755);
    mkdir("/var/lib/ipmi", 0755);
    printf("write_email_config: %d\n", write_email_config(NULL, &config));
    show_file("/var/lib/ipmi/nail.rc");

    memset(&back, 0, sizeof back);
    printf("read_email_config: %d\n", read_email_config(NULL, &back));
    memcpy(port, back.port, sizeof port);
    printf("server %s, port %u, TLS %u, login %u, recipients %s %s\n",
           back.server, (unsigned)(port[0] | port[1] << 8), back.tls[0],
           back.authentication[0], back.recipients[0], back.recipients[1]);
}

int main(void)
{
    snmp_tour();
    mail_tour();
    return 0;
}
