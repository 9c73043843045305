// SPDX-License-Identifier: Apache-2.0
// The FRU record: image build and parse, the image file, fru.ini and the fru
// tool end to end, its images read back by FreeIPMI's ipmi-fru.
#include "test_helpers.h"

#include <libkv/fru.h>

#include <dlfcn.h>
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

// Every fixed field holds text, as the ini reader leaves them.
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

Bytes image()
{
    return Bytes(bmc_fru_date, bmc_fru_date + bmc_fru_len);
}

// Parses an exactly sized heap copy, so the sanitizer sees any overread.
int parse(const Bytes& img)
{
    return parse_bin_date(Bytes(img).data(), int(img.size()));
}

// A header with only a chassis area at offset 1, and that area around
// `body` (after the length byte, up to the end marker), padded and summed.
Bytes chassis_image(Bytes body)
{
    Bytes a{1, 0, 1, 0, 0, 0, 0, 0xFE, 1, 0};
    a.insert(a.end(), body.begin(), body.end());
    a.resize((a.size() + 8) / 8 * 8 - 1);
    a[9] = static_cast<uint8_t>((a.size() - 7) / 8);
    a.push_back(static_cast<uint8_t>(0x100 - sum(&a[8], a.size() - 8)));
    return a;
}

TEST(Image, BuiltPaddedSummedParsedAndRebuiltTheSame)
{
    Bytes img;
    // Product names of 0 to 15 characters take the product area through
    // every padding length.
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
        img = image();
        const kv_fru_record before = fru;
        std::size_t at = 8;
        for (int offset = 2; offset <= 4; ++offset)
        {
            EXPECT_EQ(img[offset] * 8u, at);
            EXPECT_EQ(sum(&img[at], img[at + 1] * 8u), 0u);
            at += img[at + 1] * 8u;
        }
        EXPECT_EQ(img[at - 2 - fru.product.pad_count], 0xC1);
        // The record knows where the multirecord block is; the image does
        // not say. The block: one OEM record, last in the list, both sums.
        EXPECT_EQ(img[5] | img[6], 0);
        EXPECT_EQ(fru.header.multirecord_offset * 8u, at);
        const uint8_t* mr = &img[at];
        ASSERT_EQ(img.size(), at + 5 + mr[2]);
        EXPECT_EQ(mr[0] << 8 | mr[1], 0xC082);
        EXPECT_EQ(sum(mr, 5) | ((sum(mr + 5, mr[2]) + mr[3]) & 0xFF), 0u);

        fru_init();
        ASSERT_EQ(parse(img), 0);
        // Absent custom fields leave no trace: the one left moves to slot 0.
        EXPECT_EQ(fru.product.custom.type_len[0], 0xC2);
        EXPECT_EQ(fru.product.custom.data[0][1], 'z');
        EXPECT_EQ(fru.product.checksum, before.product.checksum);
        EXPECT_EQ(fru.product.pad_count, before.product.pad_count);
        // Raw copies: over the count word for chassis, in the data for
        // product.
        EXPECT_EQ(std::memcmp(fru_buff.chassis.data, &img[12],
                              fru_buff.chassis.count - 4),
                  0);
        EXPECT_EQ(std::memcmp(fru_buff.product.data, &img[img[4] * 8],
                              fru_buff.product.count),
                  0);
        get_multirecord_date();
        ASSERT_EQ(get_fru_date(), 0);
        EXPECT_EQ(image(), img);
    }

    // Bad sums of the header and each area; the length argument bounds the
    // reads.
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

TEST(Image, MalformedAreasAreRefusedWithoutStrayAccess)
{
    // Type, part and serial number, `n` custom fields, the end marker.
    auto customs = [](int n) {
        Bytes body{2, 0xC0, 0xC0};
        body.insert(body.end(), n, 0xC0);
        body.push_back(0xC1);
        return body;
    };
    // Chassis areas around these bodies: the image's result and the area
    // parser's.
    const struct
    {
        Bytes body;
        int image, area;
    } cases[] = {
        {customs(9), 10, -31},
        // A field longer than the rest of its area; no end marker; not
        // ASCII.
        {{2, 0xC0, 0xC0, 0xC5, 'a'}, 10, -32},
        {{2, 0xC0, 0xC0, 0xC0, 0xC0}, 10, -32},
        {{2, 0xC0, 0xC0, 0x05, 0xC1}, 10, -32},
        {customs(8), 0, 0},
    };
    for (const auto& c : cases)
    {
        const Bytes img = chassis_image(c.body);
        EXPECT_EQ(parse(img), c.image);
        Bytes area(img.begin() + 8, img.end());
        EXPECT_EQ(parse_bin_to_chassis(area.data()), c.area);
    }
    EXPECT_EQ(fru.chassis.custom.type_len[7], 0xC0);
    // The length byte claims more than the image holds; a 256-byte area; an
    // offset past the end of the image.
    const Bytes whole = chassis_image(customs(3));
    EXPECT_EQ(parse(Bytes(whole.begin(), whole.end() - 8)), 10);
    Bytes big(256);
    big[1] = 32;
    big[255] = 0xE0;
    EXPECT_EQ(parse_bin_to_chassis(big.data()), -31);
    EXPECT_EQ(parse({1, 0, 9, 0, 0, 0, 0, 0xF6}), 10);
}

TEST(Image, MinutesSince1996InLocalTime)
{
    // Both ends in local time: summer time in July, standard in January.
    // (The same date in UTC is read back from the tool's image below.)
    setenv("TZ", "Europe/Berlin", 1);
    tzset();
    char when[] = "2019/07/27 15:04:59", first[] = "2017/03/10 10:18";
    EXPECT_EQ(get_time(when), 12396424 - 60);
    EXPECT_EQ(get_time(first), 0xAA0E4A); // fru_init's board date
    unsetenv("TZ");
    tzset();
}

TEST(Image, FileWrittenInPlaceWithModeZeroShortWritesReported)
{
    write_text("default-fru.bin", std::string(2000, 'z'));
    fill_record();
    ASSERT_EQ(get_fru_date(), 0);
    ASSERT_EQ(write_to_bin(), 0);
    EXPECT_EQ(read_text("default-fru.bin")->size(), 2000u); // not truncated
    ASSERT_EQ(std::remove("default-fru.bin"), 0);
    ASSERT_EQ(write_to_bin(), 0);
    struct stat st = {};
    ASSERT_EQ(stat("default-fru.bin", &st), 0);
    EXPECT_EQ(st.st_mode & 07777, 0u);

    std::signal(SIGXFSZ, SIG_IGN);
    rlimit old{};
    getrlimit(RLIMIT_FSIZE, &old);
    rlimit small = old;
    small.rlim_cur = 16;
    // Captured output goes to a file too: lift the limit before it flushes.
    int result = 0;
    const std::string out = stdout_of([&] {
        ASSERT_EQ(setrlimit(RLIMIT_FSIZE, &small), 0);
        result = write_to_bin();
        setrlimit(RLIMIT_FSIZE, &old);
    });
    EXPECT_EQ(result, -12);
    EXPECT_EQ(out, "write bin file error2.");
}

TEST(Ini, LooseKeyLookupAndTextHelpers)
{
    const char* a = "a.ini";
    write_text(a,
               "[A]\nSerialNumber =   \"long\"  \nEmpty\n[B]\n"
               "Note = \"x#y\" # comment\n  Indented = \"no\"\nPlain = 42\n");
    // Prefix match: SerialNum finds SerialNumber; the line end stays.
    EXPECT_STREQ(GetIniKeyString("A", "SerialNum", a), "\"long\"  \n");
    // Section A never ends, so keys of B are found from A.
    EXPECT_EQ(GetIniKeyInt("A", "Plain", a), 42);
    EXPECT_STREQ(GetIniKeyString("B", "Note", a), "\"x");
    // Keys start in column 1; a matching line without '=' ends the search.
    EXPECT_EQ(GetIniKeyString("A", "Indented", a), nullptr);
    EXPECT_EQ(GetIniKeyString("A", "Empty", a), nullptr);
    EXPECT_EQ(GetIniKeyString("C", "Plain", a), nullptr);
    EXPECT_EQ(GetIniKeyInt("C", "Plain", a), 0);

    char padded[] = "   a b  ";
    EXPECT_EQ(rtspace(padded), padded);
    EXPECT_STREQ(padded, "a b");
    char quoted[] = "\"in\"side\" \n", open[] = "\"open";
    EXPECT_EQ(fru_get_str(quoted), quoted + 1);
    EXPECT_STREQ(quoted + 1, "in");
    EXPECT_EQ(fru_get_str(open), nullptr);
    EXPECT_EQ(fru_get_str(nullptr), nullptr);
}

struct Edit
{
    const char *section, *from, *to;
};

// fru_read_ini's result and what it printed, on the default fru.ini with
// each edit's first line starting with `from` at or after `section`
// replaced by `to`.
std::pair<int, std::string> read_ini(std::vector<Edit> edits = {})
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
    const std::string out = stdout_of([&] { result = fru_read_ini(); });
    return {result, out};
}

TEST(Ini, TemplateIntoTheRecordAndMissingKeys)
{
    char lines[2][KV_FRU_INI_LINE_BYTES] = {"has its own\n", "x"};
    ASSERT_EQ(config_default_ini(lines, 2, "b.ini"), 0);
    EXPECT_EQ(read_text("b.ini"), "has its own\nx\n");
    EXPECT_EQ(config_default_ini(nullptr, 2, "b.ini"), -1);
    EXPECT_EQ(config_default_ini(lines, 2, nullptr), -1);
    EXPECT_EQ(config_default_ini(lines, 2, "no/dir.ini"), -2);

    // The library's tables lie one after another; fru_param repeats them.
    void* lib = dlopen("libkv.so.1", RTLD_NOW | RTLD_NOLOAD);
    auto* rows = static_cast<kv_fru_param*>(dlsym(lib, "chassis_param"));
    EXPECT_EQ(dlsym(lib, "board_param"), rows + 3);
    EXPECT_EQ(dlsym(lib, "product_param"), rows + 15);
    EXPECT_EQ(dlsym(lib, "fru_param"), rows + 27);
    for (int i = 0; i < 27; ++i)
    {
        EXPECT_EQ(fru_param[i].index, i);
        EXPECT_STREQ(fru_param[i].key, rows[i].key);
        EXPECT_STREQ(fru_param[i].section, rows[i].section);
    }

    // Custom fields take the rows after their own table: board rows for
    // the chassis, product rows for the board (the tool's image shows
    // them, below), fru_param's empty rows for the product.
    auto [result, out] = read_ini();
    ASSERT_EQ(result, 0);
    EXPECT_EQ(out, "chassis0 2 \nchassis1 N/A \nchassis2 N/A \n");
    EXPECT_EQ(fru.chassis.custom.type_len[5], 0xC0); // empty FRUFileID
    EXPECT_EQ(
        Bytes(fru.product.custom.type_len + 5, fru.product.custom.type_len + 8),
        Bytes(3, 0xC0));

    const struct
    {
        std::vector<Edit> edits;
        int result;
        const char *area, *key;
    } cases[] = {
        {{{"[Chassis", "Type", "x"}}, -3, "Chassis", "Type"},
        // The board message names the row counted from the chassis table;
        // sections never end, so the product section's key is found too.
        {{{"[Board", "PartNum", "x"}, {"[Product", "PartNum", "x"}},
         -3,
         "Board",
         "Manufacturer\n"},
        {{{"[Board", "FRUFileID", "x"}, {"[Product", "FRUFileID", "x"}},
         -3,
         "Board",
         "ProductName\n"},
        {{{"[Product", "[ProductInfoArea]", "[Other]"}},
         -3,
         "Product",
         "Type\n"},
        {{{"[Board", "time", "time = \"2019/07/27\""}}, -4, "", ""},
        // Custom strings and the product FRUFileID may be left out.
        {{{"[Product", "FRUFileID", "x"}}, 0, "", ""},
        {{{"[Board", "CustomDataString5", "x"}}, 0, "", ""},
    };
    for (const auto& c : cases)
    {
        std::tie(result, out) = read_ini(c.edits);
        EXPECT_EQ(result, c.result) << c.edits[0].from;
        EXPECT_EQ(out.substr(std::min(out.find("在"), out.size())),
                  *c.area ? std::string("在fru.ini文件") + c.area +
                                "InfoArea中无法找到关键字段" + c.key
                          : "");
    }
    EXPECT_EQ(fru.board.custom.type_len[5], 0xC0);

    // The board's key stands in for the chassis's missing one. A part
    // number of 64 characters fills its slot without terminator and wraps
    // the type byte to 0, which the builder then refuses for a fixed field.
    const std::string full = "PartNum = \"" + std::string(64, 'p') + "\"";
    ASSERT_EQ(read_ini({{"[Chassis", "SerialNum", "x"},
                        {"[Board", "SerialNum", "SerialNum = \"B-1\""},
                        {"[Chassis", "PartNum", full.c_str()}})
                  .first,
              0);
    const kv_fru_field* chassis = fru.chassis.field; // part, serial number
    EXPECT_EQ(chassis[0].type_len, 0);
    EXPECT_EQ(std::memcmp(chassis[0].data, &full[11], 64), 0);
    EXPECT_EQ(chassis[1].type_len, 0xC3);
    EXPECT_EQ(std::memcmp(chassis[1].data, "B-1", 3), 0);
    EXPECT_STREQ(chassis_param[2].key, "SerialNum");
    int created = 0;
    stdout_of([&] { created = create_fru_bin(); });
    EXPECT_EQ(created, 16);
    std::remove("fru.ini");
    stdout_of([&] { created = create_fru_bin(); });
    EXPECT_EQ(created, 15);
}

TEST(FruTool, Helpers)
{
    const uint8_t bytes[] = {'f', 'r', 'u', '\n'};
    EXPECT_EQ(0, backup_fru_bin(bytes, 4));
    EXPECT_EQ("fru\n", read_text("fru.bat"));
    write_text("out.bin", "old content");
    EXPECT_EQ(0, WriteFile("out.bin", bytes, 2, 3));
    EXPECT_EQ(std::string("\0\0fru", 5), read_text("out.bin"));
    EXPECT_EQ("WriteFile: open /no/dir/x file fail\n", stdout_of([&] {
                  EXPECT_EQ(1, WriteFile("/no/dir/x", bytes, 0, 4));
              }));

    // A command that succeeds from run `from` on: 20 runs count.
    const int cases[][3] = {{3, 0, 3}, {20, 0, 20}, {21, -1, 21}, {99, -1, 21}};
    for (const auto& [from, result, runs] : cases)
    {
        std::remove("runs");
        const std::string command = "echo >> runs; [ $(wc -l < runs) -ge " +
                                    std::to_string(from) + " ]";
        EXPECT_EQ(result, write_fru_cmd(command.c_str())) << from;
        EXPECT_EQ(std::to_string(runs) + "\n", run_shell("wc -l <runs").output);
    }

    // The directory of the program as started.
    char path[513] = {};
    EXPECT_EQ(0, GetCurrentPath(path, "fru.ini"));
    const std::string program = program_invocation_name;
    EXPECT_EQ(program.substr(0, program.rfind('/') + 1) + "fru.ini", path);
}

const std::string tool = FRU_TOOL;

TEST(FruTool, WrongUsePrintsTheUsageText)
{
    const auto help = run_shell(tool + " help");
    EXPECT_EQ(0, help.status);
    EXPECT_THAT(help.output, StartsWith(" fru V3.1 Version(2021-07"));
    for (const char* arguments :
         {"", "-x", "127.0.0.1 root pw 0 -w other.ini",
          "127.0.0.1 root pw 256 -w A B C", "127.0.0.1 root pw x1 -w A B C",
          "127.0.0.1 root pw 0 -r A B C"})
    {
        const auto outcome = run_shell(tool + " " + arguments);
        EXPECT_EQ(2, outcome.status) << arguments;
        EXPECT_EQ(help.output, outcome.output) << arguments;
    }
    // A command meant for another BMC changes nothing here.
    const auto remote = run_shell(
        tool + " 192.0.2.1 root pw 0 -w BoardInfoArea SerialNum X 2>&1");
    EXPECT_EQ(1, remote.status);
    EXPECT_THAT(remote.output, HasSubstr("192.0.2.1 is not an address of"));
}

TEST(FruTool, ImageFileAndDeviceEditsReadBackWithFreeIpmi)
{
    // Device 0 is the blank EEPROM behind the example board's multiplexer.
    // Edits of it fail, and so does writing it without fru.ini. Then the
    // default fru.ini, one name changed, as default-fru.bin and on the
    // device; an unknown key fails; the board time (which changes nothing)
    // and the serial number change; the device is read back over I2C. In
    // the sanitizer build kvsim preloads the sanitizer into every program;
    // perl's leaks are not ours to report.
    const std::string fru = tool + " 127.0.0.1 admin admin 0 -w ";
    const std::string script =
        "set -e; cd /tmp; " + fru + "BoardInfoArea SerialNum SN1 || true; " +
        fru + "fru.ini || true; " + tool + " -c; " + fru +
        "BoardInfoArea SerialNum " + std::string(64, 'x') +
        " || true; sed -i "
        "s/krafloxkle/Kestrel/ fru.ini; " +
        tool + " -b >/dev/null; " + fru + "fru.ini >/dev/null; " + fru +
        "BoardInfoArea Colour red || true; "
        "echo ==; /usr/sbin/ipmi-fru "
        "--fru-file=default-fru.bin; " +
        fru + "BoardInfoArea time 2020/01/01; " + fru +
        "BoardInfoArea SerialNum SN123; " KVSIM_I2CTRANSFER
        " -y 16 w2@0x51 0 0 r512 | ASAN_OPTIONS=detect_leaks=0 "
        "perl -ne 'print pack q(C*), map hex, split' > device.bin; "
        "/usr/sbin/ipmi-fru --fru-file=device.bin";
    const auto outcome = run_shell(
        std::string(KVSIM_TOOL " " KVSIM_EXAMPLE_BOARD " -- /bin/sh -c \"") +
        script + "\" 2>&1");
    EXPECT_EQ(0, outcome.status) << outcome.output;
    const auto done = outcome.output.find("==\n");
    for (const char* failure :
         {" get fru .bin error:9.\n", "the field failed (13)\n",
          "have   no   such   file ",
          "writing fru.ini to the device failed (-9)\n",
          "the field failed (-10)\n", " input error.\n",
          "the field failed (-14)\n"})
        EXPECT_THAT(outcome.output.substr(0, done), HasSubstr(failure));
    // The file's, then the device's with the same date and a new number.
    for (const char* line :
         {"Chassis Type: Unknown\n  FRU Chassis Part Number: N/A\n",
          "Info: 2019/07/27 15:04:00\n  FRU Chassis Custom Info: VeldMarke\n",
          "Info: VeldMarke\n  FRU Board Custom Info: Kestrel\n\n",
          "Product Name: Kestrel\n  FRU Product Part/Model",
          "Product Serial Number: 000011112222\n", "Board Serial Number: N/A\n",
          "07/27/19 - 15:04:00\n  FRU Board Manufacturer: VeldMarke\n  FRU "
          "Board Product Name: Kestrel\n  FRU Board Serial Number: SN123\n"})
        EXPECT_THAT(outcome.output, HasSubstr(line));
    EXPECT_THAT(outcome.output.substr(done), Not(HasSubstr("rror")));
}

} // namespace
