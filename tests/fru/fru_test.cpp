// SPDX-License-Identifier: Apache-2.0
// The FRU record: image build and parse, the image file, fru.ini and the fru
// tool end to end, its images read back by FreeIPMI's ipmi-fru.
#include "test_helpers.h"

#include <libkv/fru.h>

#include <gmock/gmock.h>
#include <sys/resource.h>
#include <sys/stat.h>

#include <cerrno>
#include <csignal>
#include <cstring>
#include <numeric>

namespace
{

using namespace kv::test;
using namespace testing;
using Bytes = std::vector<uint8_t>;

void set(kv_fru_field& f, const std::string& text)
{
    f.type_len = static_cast<uint8_t>(0xC0 + text.size());
    std::memcpy(f.data, text.data(), text.size());
}

void fill_record()
{
    fru_init();
    for (auto& f : fru.chassis.field)
        set(f, "C");
    for (auto& f : fru.board.field)
        set(f, "Board");
    for (auto& f : fru.product.field)
        set(f, "Product");
}

unsigned sum(const uint8_t* p, std::size_t n)
{
    return std::accumulate(p, p + n, 0u) & 0xFF;
}

// Parses an exactly sized heap copy, so the sanitizer sees any overread.
int parse(const Bytes& img)
{
    return parse_bin_date(Bytes(img).data(), int(img.size()));
}

// Only a chassis area: `body` between its length byte and its sum.
Bytes chassis_image(Bytes body)
{
    Bytes a{1, 0, 1, 0, 0, 0, 0, 0xFE, 1, 0};
    a.insert(a.end(), body.begin(), body.end());
    a.resize((a.size() + 8) / 8 * 8 - 1);
    a[9] = static_cast<uint8_t>((a.size() - 7) / 8);
    a.push_back(static_cast<uint8_t>(0x100 - sum(&a[8], a.size() - 8)));
    return a;
}

TEST(Image, RoundTrip)
{
    Bytes img;
    // Product names of 0 to 15 characters: every padding length.
    for (std::size_t n = 0; n < 16; ++n)
    {
        fill_record();
        set(fru.product.field[KV_FRU_PRODUCT_NAME], std::string(n, 'x'));
        set(fru.board.field[KV_FRU_BOARD_SERIAL_NUMBER], std::string(63, 's'));
        fru.board.custom.type_len[3] = 0xC0; // present and empty
        fru.product.custom.type_len[7] = 0xC2;
        std::memcpy(fru.product.custom.data[7], "Zz", 2);
        get_multirecord_date();
        ASSERT_EQ(get_fru_date(), 0);
        img.assign(bmc_fru_date, bmc_fru_date + bmc_fru_len);
        std::size_t at = 8;
        for (int offset = 2; offset <= 4; ++offset)
        {
            EXPECT_EQ(img[offset] * 8u, at);
            at += img[at + 1] * 8u;
        }
        EXPECT_EQ(img[at - 2 - fru.product.pad_count], 0xC1);
        // Multirecord: only the record knows where; one OEM record, last.
        EXPECT_EQ(img[5] | img[6], 0);
        EXPECT_EQ(fru.header.multirecord_offset * 8u, at);
        const uint8_t* mr = &img[at];
        ASSERT_EQ(img.size(), at + 5 + mr[2]);
        EXPECT_EQ(mr[0] << 8 | mr[1], 0xC082);
        EXPECT_EQ(sum(mr, 5) | ((sum(mr + 5, mr[2]) + mr[3]) & 0xFF), 0u);

        fru_init();
        ASSERT_EQ(parse(img), 0);
        // Absent custom fields leave no trace.
        EXPECT_EQ(fru.product.custom.type_len[0], 0xC2);
        // Raw copies: chassis's over the count word.
        EXPECT_FALSE(std::memcmp(fru_buff.chassis.data, &img[12],
                                 fru_buff.chassis.count - 4) ||
                     std::memcmp(fru_buff.product.data, &img[img[4] * 8],
                                 fru_buff.product.count));
        get_multirecord_date();
        ASSERT_EQ(get_fru_date(), 0);
        EXPECT_EQ(Bytes(bmc_fru_date, bmc_fru_date + bmc_fru_len), img);
    }

    // Bad sums of the header and each area; the length bounds the reads.
    for (int i = 1; i <= 4; ++i)
    {
        Bytes bad = img;
        bad[i > 1 ? img[i] * 8 + 5 : 6] ^= 1;
        EXPECT_EQ(parse(bad), 8 + i);
    }
    EXPECT_EQ(parse_bin_date(img.data(), img[4] * 8 + 7), 12);
    EXPECT_EQ(parse_bin_date(img.data(), 7), 9);

    // A bad type/length byte fails its area; fixed fields cannot be absent.
    uint8_t* const wrong[] = {&fru.chassis.custom.type_len[2],
                              &fru.board.custom.type_len[7],
                              &fru.product.custom.type_len[0],
                              &fru.board.field[KV_FRU_BOARD_FILE_ID].type_len};
    for (int i = 0; i < 4; ++i)
    {
        fill_record();
        *wrong[i] = i == 3 ? 0 : 5;
        EXPECT_EQ(get_fru_date(), i == 3 ? 5 : 4 + i);
    }
}

TEST(Image, Malformed)
{
    // Type, part and serial number, `n` custom fields, the end marker.
    auto customs = [](int n) {
        Bytes body(n + 4, 0xC0);
        body[0] = 2;
        body.back() = 0xC1;
        return body;
    };
    const std::pair<Bytes, int> cases[] = {
        {customs(9), -31},
        // Overlong field; no end marker; not ASCII.
        {{2, 0xC0, 0xC0, 0xC5, 'a'}, -32},
        {{2, 0xC0, 0xC0, 0xC0, 0xC0}, -32},
        {{2, 0xC0, 0xC0, 0x05, 0xC1}, -32},
    };
    for (const auto& [body, result] : cases)
    {
        const Bytes img = chassis_image(body);
        Bytes area(img.begin() + 8, img.end());
        EXPECT_EQ(parse_bin_to_chassis(area.data()), result);
    }
    const Bytes whole = chassis_image(customs(8));
    EXPECT_EQ(parse(whole), 0);
    EXPECT_EQ(fru.chassis.custom.type_len[7], 0xC0);
    // Area longer than the image; a 256-byte area; offset past the end.
    EXPECT_EQ(parse(Bytes(whole.begin(), whole.end() - 8)), 10);
    Bytes big(256);
    big[1] = 32;
    big[255] = 0xE0;
    EXPECT_EQ(parse_bin_to_chassis(big.data()), -31);
    EXPECT_EQ(parse({1, 0, 9, 0, 0, 0, 0, 0xF6}), 10);
}

TEST(Image, File)
{
    write_text("default-fru.bin", std::string(2000, 'z'));
    bmc_fru_len = 100;
    ASSERT_EQ(write_to_bin(), 0);
    EXPECT_EQ(read_text("default-fru.bin")->size(), 2000u); // not truncated
    std::remove("default-fru.bin");
    ASSERT_EQ(write_to_bin(), 0);
    struct stat st = {};
    ASSERT_EQ(stat("default-fru.bin", &st), 0);
    EXPECT_EQ(st.st_mode & 07777, 0u);

    std::signal(SIGXFSZ, SIG_IGN);
    rlimit old{};
    getrlimit(RLIMIT_FSIZE, &old);
    const rlimit small{16, old.rlim_max};
    stdout_of([&] {
        ASSERT_EQ(setrlimit(RLIMIT_FSIZE, &small), 0);
        const int result = write_to_bin();
        setrlimit(RLIMIT_FSIZE, &old);
        EXPECT_EQ(result, -12);
    });
}

TEST(Ini, Lookup)
{
    const char* a = "a.ini";
    write_text(a,
               "[A]\nSerialNumber =  \"x #y\" #\n[B]\nPlain = 42\nN\nN = 1\n");
    // Prefix match, comment cut; section A runs on through B; a line
    // without '=' ends the search.
    EXPECT_STREQ(GetIniKeyString("A", "Serial", a), "\"x");
    EXPECT_EQ(GetIniKeyInt("A", "Plain", a), 42);
    EXPECT_EQ(GetIniKeyInt("A", "N", a), 0);
    EXPECT_EQ(GetIniKeyInt("C", "Plain", a), 0);
}

struct Edit
{
    const char *section, *from, *to;
};

// fru_read_ini on the default fru.ini, each edit replacing the first line
// starting with `from` after `section` by `to`.
int read_ini(std::vector<Edit> edits = {})
{
    config_default_ini(default_ini, KV_FRU_INI_LINES, "fru.ini");
    std::string text = read_text("fru.ini").value();
    for (const Edit& e : edits)
    {
        const auto header = text.find(e.section);
        const auto at =
            text.find("\n" + std::string(e.from), header - (header > 0)) + 1;
        text.replace(at, text.find('\n', at) - at, e.to);
    }
    write_text("fru.ini", text);
    fru_init();
    int result = 1;
    stdout_of([&] { result = fru_read_ini(); });
    return result;
}

TEST(Ini, Read)
{
    char lines[2][KV_FRU_INI_LINE_BYTES] = {"has its own\n", "x"};
    ASSERT_EQ(config_default_ini(lines, 2, "b.ini"), 0);
    EXPECT_EQ(read_text("b.ini"), "has its own\nx\n");
    EXPECT_EQ(config_default_ini(nullptr, 2, "b.ini"), -1);
    EXPECT_EQ(config_default_ini(lines, 2, "no/dir.ini"), -2);

    // Custom fields take the rows after their own table.
    ASSERT_EQ(read_ini(), 0);
    EXPECT_EQ(fru.chassis.custom.type_len[5], 0xC0); // empty FRUFileID
    EXPECT_EQ(fru.product.custom.type_len[7], 0xC0);

    const std::pair<std::vector<Edit>, int> cases[] = {
        {{{"[Chassis", "Type", "x"}}, -3},
        {{{"[Board", "PartNum", "x"}, {"[Product", "PartNum", "x"}}, -3},
        {{{"[Board", "FRUFileID", "x"}, {"[Product", "FRUFileID", "x"}}, -3},
        {{{"[Product", "[ProductInfoArea]", "[Other]"}}, -3},
        {{{"[Board", "time", "time = \"2019/07/27\""}}, -4},
        // Custom strings and the product FRUFileID may be left out.
        {{{"[Product", "FRUFileID", "x"}}, 0},
        {{{"[Board", "CustomDataString5", "x"}}, 0},
    };
    for (const auto& [edits, result] : cases)
        EXPECT_EQ(read_ini(edits), result) << edits[0].from;
    EXPECT_EQ(fru.board.custom.type_len[5], 0xC0);

    // 64 characters wrap the type byte to 0, which the builder refuses.
    const std::string full = "PartNum = \"" + std::string(64, 'p') + "\"";
    read_ini({{"[Chassis", "PartNum", full.c_str()}});
    EXPECT_EQ(std::memcmp(fru.chassis.field[0].data, &full[11], 64), 0);
    for (int result : {16, 15}) // refused, then without fru.ini
    {
        stdout_of([&] { EXPECT_EQ(create_fru_bin(), result); });
        std::remove("fru.ini");
    }
}

TEST(FruTool, Helpers)
{
    const uint8_t bytes[] = {'f', 'r', 'u', '\n'};
    EXPECT_EQ(0, backup_fru_bin(bytes, 4));
    EXPECT_EQ("fru\n", read_text("fru.bat"));
    write_text("out.bin", "old content");
    EXPECT_EQ(0, WriteFile("out.bin", bytes, 2, 3));
    EXPECT_EQ(std::string("\0\0fru", 5), read_text("out.bin"));
    EXPECT_EQ(1, WriteFile("/no/dir/x", bytes, 0, 4));

    // A command that succeeds from run `from` on: 20 runs count.
    const int cases[][2] = {{20, 0}, {21, -1}, {99, -1}};
    for (const auto& [from, result] : cases)
    {
        std::remove("runs");
        const std::string command = "echo >> runs; [ $(wc -l < runs) -ge " +
                                    std::to_string(from) + " ]";
        EXPECT_EQ(result, write_fru_cmd(command.c_str())) << from;
        EXPECT_EQ(read_text("runs")->size(), std::min<std::size_t>(from, 21));
    }

    // The directory of the program as started.
    char path[513] = {};
    EXPECT_EQ(0, GetCurrentPath(path, "fru.ini"));
    const std::string program = program_invocation_name;
    EXPECT_EQ(program.substr(0, program.rfind('/') + 1) + "fru.ini", path);
}

const std::string tool = FRU_TOOL;

TEST(FruTool, Usage)
{
    const auto help = run_shell(tool + " help");
    EXPECT_EQ(0, help.status);
    for (const char* arguments :
         {"-x", "1 2 3 0 -w other.ini", "1 2 3 256 -w A B C",
          "1 2 3 x1 -w A B C", "1 2 3 0 -r A B C"})
    {
        const auto outcome = run_shell(tool + " " + arguments);
        EXPECT_EQ(2, outcome.status) << arguments;
        EXPECT_EQ(help.output, outcome.output) << arguments;
    }
    // A command meant for another BMC changes nothing here.
    const auto remote = run_shell(tool + " 192.0.2.1 1 2 0 -w A B C");
    EXPECT_EQ(1, remote.status);
}

TEST(FruTool, ReadBackByIpmiFru)
{
    // Device 0 is blank: edits fail, so does writing without fru.ini. The
    // default fru.ini goes to file and device; edits; the device read back.
    // kvsim preloads the sanitizer: perl's leaks are not ours.
    write_text("t.sh", R"(set -e; cd /tmp; T=$1
f() { $T 127.0.0.1 admin admin 0 -w "$@"; }
f BoardInfoArea SerialNum SN1 || true; f fru.ini || true; $T -c
f BoardInfoArea SerialNum $(printf %064d 0) || true
sed -i s/krafloxkle/Kestrel/ fru.ini; $T -b >/dev/null; f fru.ini >/dev/null
f BoardInfoArea Colour red || true; echo ==
/usr/sbin/ipmi-fru --fru-file=default-fru.bin
f BoardInfoArea time 2020/01/01; f BoardInfoArea SerialNum SN123
)" KVSIM_I2CTRANSFER R"( -y 16 w2@0x51 0 0 r512 | ASAN_OPTIONS=detect_leaks=0 \
perl -ne 'print pack q(C*), map hex, split' > device.bin
/usr/sbin/ipmi-fru --fru-file=device.bin)");
    const auto outcome =
        run_shell(KVSIM_TOOL " " KVSIM_EXAMPLE_BOARD " -- /bin/sh -s " + tool +
                  " <t.sh 2>&1");
    EXPECT_EQ(0, outcome.status) << outcome.output;
    const auto done = outcome.output.find("==\n");
    for (const char* failure :
         {"failed (13)", "failed (-9)", "failed (-10)", "failed (-14)"})
        EXPECT_THAT(outcome.output.substr(0, done), HasSubstr(failure));
    for (const char* line :
         {"Chassis Type: Unknown\n  FRU Chassis Part Number: N/A\n",
          "Info: 2019/07/27 15:04:00\n  FRU Chassis Custom Info: VeldMarke\n",
          "Info: VeldMarke\n  FRU Board Custom Info: Kestrel\n\n",
          "Product Name: Kestrel\n  FRU Product Part/Model",
          "Board Serial Number: N/A\n", "07/27/19 - 15:04:00\n",
          "Board Serial Number: SN123\n"})
        EXPECT_THAT(outcome.output, HasSubstr(line));
    EXPECT_THAT(outcome.output.substr(done), Not(HasSubstr("rror")));
}

} // namespace
