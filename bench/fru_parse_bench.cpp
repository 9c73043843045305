// SPDX-License-Identifier: Apache-2.0
// A FRU image with every area filled, parsed by libkv into its record and
// by FreeIPMI's FRU parser into the text of every field, timed in turns in
// one run.
#include "side_by_side.h"

#include <libkv/fru.h>

#include <benchmark/benchmark.h>
#include <freeipmi/freeipmi.h>

#include <cstdio>
#include <cstring>
#include <vector>

namespace
{

constexpr size_t kBatch = 200;

void set_field(kv_fru_field& field, const char* text)
{
    const size_t length = std::strlen(text);
    field.type_len = static_cast<uint8_t>(0xC0 + length);
    std::memcpy(field.data, text, length);
}

void set_custom(kv_fru_custom_fields& custom, int count, const char* prefix)
{
    for (int i = 0; i < count; ++i)
    {
        char text[32];
        std::snprintf(text, sizeof text, "%s custom %d", prefix, i);
        const size_t length = std::strlen(text);
        custom.type_len[i] = static_cast<uint8_t>(0xC0 + length);
        std::memcpy(custom.data[i], text, length);
    }
}

// Chassis, board and product areas, each field and three custom fields
// filled, as fru_tool builds them.
std::vector<uint8_t> full_image()
{
    fru_init();
    set_field(fru.chassis.field[0], "CH-PN-0042-7781");
    set_field(fru.chassis.field[1], "CHS2024110900123");
    set_custom(fru.chassis.custom, 3, "chassis");
    const char* board[] = {"Example Systems Inc.", "BMC-MAINBOARD-X2",
                           "BRD2024110900456", "BRD-PN-1130-22",
                           "board-fru-v1.2"};
    for (int i = 0; i < KV_FRU_BOARD_FIELDS; ++i)
    {
        set_field(fru.board.field[i], board[i]);
    }
    set_custom(fru.board.custom, 3, "board");
    const char* product[] = {
        "Example Systems Inc.", "Rack Server R2", "R2-2U-24SFF",     "A01",
        "PRD2024110900789",     "ASSET-000123",   "product-fru-v1.2"};
    for (int i = 0; i < KV_FRU_PRODUCT_FIELDS; ++i)
    {
        set_field(fru.product.field[i], product[i]);
    }
    set_custom(fru.product.custom, 3, "product");
    if (get_fru_date() != 0)
    {
        std::fprintf(stderr, "the FRU image could not be built\n");
        std::exit(1);
    }
    return {bmc_fru_date, bmc_fru_date + bmc_fru_len};
}

// Every field of the info areas as text, the way ipmi-fru reads an image.
class FreeIpmiReader
{
  public:
    FreeIpmiReader() : ctx_(ipmi_fru_ctx_create(nullptr))
    {}
    ~FreeIpmiReader()
    {
        ipmi_fru_ctx_destroy(ctx_);
    }
    FreeIpmiReader(const FreeIpmiReader&) = delete;
    FreeIpmiReader& operator=(const FreeIpmiReader&) = delete;

    // The number of fields turned into text, or -1.
    int read(const std::vector<uint8_t>& image)
    {
        if (ipmi_fru_open_device_id_with_buffer(ctx_, image.data(),
                                                image.size()) < 0 ||
            ipmi_fru_first(ctx_) < 0)
        {
            return -1;
        }
        int fields = 0;
        do
        {
            unsigned type = 0;
            unsigned length = 0;
            if (ipmi_fru_read_data_area(ctx_, &type, &length, area_,
                                        sizeof area_) < 0)
            {
                fields = -1;
                break;
            }
            fields += read_area(type, length);
        } while (ipmi_fru_next(ctx_) == 1);
        ipmi_fru_close_device_id(ctx_);
        return fields;
    }

  private:
    static constexpr unsigned kCustom = 8;

    int read_area(unsigned type, unsigned length)
    {
        ipmi_fru_field_t f[7 + kCustom];
        std::memset(f, 0, sizeof f);
        uint8_t byte = 0;
        uint8_t language = 0;
        uint32_t date = 0;
        unsigned fixed = 0;
        int result = -1;
        switch (type)
        {
            case IPMI_FRU_AREA_TYPE_CHASSIS_INFO_AREA:
                fixed = 2;
                result = ipmi_fru_chassis_info_area(
                    ctx_, area_, length, &byte, &f[0], &f[1], &f[2], kCustom);
                break;
            case IPMI_FRU_AREA_TYPE_BOARD_INFO_AREA:
                fixed = 5;
                result = ipmi_fru_board_info_area(
                    ctx_, area_, length, &language, &date, &f[0], &f[1], &f[2],
                    &f[3], &f[4], &f[5], kCustom);
                break;
            case IPMI_FRU_AREA_TYPE_PRODUCT_INFO_AREA:
                fixed = 7;
                result = ipmi_fru_product_info_area(
                    ctx_, area_, length, &language, &f[0], &f[1], &f[2], &f[3],
                    &f[4], &f[5], &f[6], &f[7], kCustom);
                break;
            default:
                return 0;
        }
        if (result < 0)
        {
            return 0;
        }
        int fields = 0;
        for (unsigned i = 0; i < fixed + kCustom; ++i)
        {
            if (f[i].type_length_field_length == 0)
            {
                continue;
            }
            unsigned text_length = sizeof text_;
            if (ipmi_fru_type_length_field_to_string(
                    ctx_, f[i].type_length_field, f[i].type_length_field_length,
                    language, text_, &text_length) == 0)
            {
                ++fields;
            }
        }
        benchmark::DoNotOptimize(text_);
        return fields;
    }

    ipmi_fru_ctx_t ctx_;
    uint8_t area_[IPMI_FRU_AREA_SIZE_MAX];
    char text_[IPMI_FRU_AREA_STRING_MAX + 1];
};

void parse_bin_date_vs_freeipmi(benchmark::State& state)
{
    const std::vector<uint8_t> image = full_image();
    FreeIpmiReader freeipmi;
    // 2 + 5 + 7 fixed fields and 3 custom fields in each of the three areas.
    if (const int fields = freeipmi.read(image); fields != 23)
    {
        state.SkipWithError(("FreeIPMI read " + std::to_string(fields) +
                             " fields instead of 23")
                                .c_str());
        return;
    }
    if (parse_bin_date(image.data(), static_cast<int>(image.size())) != 0)
    {
        state.SkipWithError("parse_bin_date refused the image");
        return;
    }
    kv::bench::time_side_by_side(
        state, kBatch,
        [&] {
            benchmark::DoNotOptimize(
                parse_bin_date(image.data(), static_cast<int>(image.size())));
            benchmark::ClobberMemory();
        },
        [&] { benchmark::DoNotOptimize(freeipmi.read(image)); }, [] {});
}

BENCHMARK(parse_bin_date_vs_freeipmi)->MinTime(2.0);

} // namespace

int main(int argc, char** argv)
{
    benchmark::Initialize(&argc, argv);
    kv::bench::RatioReporter reporter(std::vector<kv::bench::Goal>{
        {"parse_bin_date_vs_freeipmi", "at most 0.067, 15 times faster"}});
    benchmark::RunSpecifiedBenchmarks(&reporter);
    benchmark::Shutdown();
    return 0;
}
