// SPDX-License-Identifier: Apache-2.0
// Board files: JSON that names the buses and the devices on each.
#include "sim.h"

#include <cjson/cJSON.h>
#include <linux/i2c.h>

#include <cctype>
#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <iterator>
#include <map>
#include <memory>
#include <set>
#include <sstream>
#include <stdexcept>
#include <string>

namespace kv::sim
{
namespace
{

const std::map<std::string, unsigned long> function_names = {
    {"i2c", I2C_FUNC_I2C},
    {"smbus_quick", I2C_FUNC_SMBUS_QUICK},
    {"smbus_read_byte", I2C_FUNC_SMBUS_READ_BYTE},
    {"smbus_write_byte", I2C_FUNC_SMBUS_WRITE_BYTE},
    {"smbus_read_byte_data", I2C_FUNC_SMBUS_READ_BYTE_DATA},
    {"smbus_write_byte_data", I2C_FUNC_SMBUS_WRITE_BYTE_DATA},
    {"smbus_read_word_data", I2C_FUNC_SMBUS_READ_WORD_DATA},
    {"smbus_write_word_data", I2C_FUNC_SMBUS_WRITE_WORD_DATA},
    {"smbus_proc_call", I2C_FUNC_SMBUS_PROC_CALL},
    {"smbus_read_block_data", I2C_FUNC_SMBUS_READ_BLOCK_DATA},
    {"smbus_write_block_data", I2C_FUNC_SMBUS_WRITE_BLOCK_DATA},
    {"smbus_read_i2c_block", I2C_FUNC_SMBUS_READ_I2C_BLOCK},
    {"smbus_write_i2c_block", I2C_FUNC_SMBUS_WRITE_I2C_BLOCK},
};

const std::map<std::string, DeviceType> type_names = {
    {"cpld", DeviceType::cpld},
    {"eeprom", DeviceType::eeprom},
    {"pca9546", DeviceType::pca9546},
};

// An integer in C notation ("0x3f", "63").
bool parse_number(const std::string& text, long& value)
{
    char* end = nullptr;
    value = std::strtol(text.c_str(), &end, 0);
    return !text.empty() && *end == '\0';
}

// One JSON value and where it sits, for messages that point at it.
class Node
{
  public:
    Node(const cJSON* json, std::string where) :
        json_(json), where_(std::move(where))
    {}

    [[noreturn]] void reject(const std::string& why) const
    {
        throw std::runtime_error(where_.empty() ? why : where_ + ": " + why);
    }

    // Refuses members other than `allowed` (and "comment"), so that a
    // misspelt key does not pass unnoticed.
    void allow_only(std::initializer_list<const char*> allowed) const
    {
        expect(cJSON_IsObject(json_), "an object");
        for (const cJSON* member = json_->child; member != nullptr;
             member = member->next)
        {
            const std::string key = member->string;
            bool known = key == "comment";
            for (const char* name : allowed)
            {
                known = known || key == name;
            }
            if (!known)
            {
                reject("unknown member \"" + key + "\"");
            }
        }
    }

    bool has(const char* key) const
    {
        return cJSON_GetObjectItemCaseSensitive(json_, key) != nullptr;
    }

    Node operator[](const char* key) const
    {
        const cJSON* member = cJSON_GetObjectItemCaseSensitive(json_, key);
        if (member == nullptr)
        {
            reject(std::string("\"") + key + "\" is missing");
        }
        return {member, inside(key)};
    }

    std::vector<Node> items() const
    {
        expect(cJSON_IsArray(json_), "an array");
        std::vector<Node> found;
        int index = 0;
        for (const cJSON* item = json_->child; item != nullptr;
             item = item->next)
        {
            found.emplace_back(item,
                               where_ + "[" + std::to_string(index++) + "]");
        }
        return found;
    }

    // Members of an object, keyed by their names.
    std::vector<std::pair<std::string, Node>> members() const
    {
        expect(cJSON_IsObject(json_), "an object");
        std::vector<std::pair<std::string, Node>> found;
        for (const cJSON* member = json_->child; member != nullptr;
             member = member->next)
        {
            found.emplace_back(member->string,
                               Node(member, inside(member->string)));
        }
        return found;
    }

    std::string text() const
    {
        expect(cJSON_IsString(json_), "a string");
        return json_->valuestring;
    }

    // A JSON integer, or a string holding one in C notation ("0x3f", "63").
    long number(long low, long high) const
    {
        long value = 0;
        if (cJSON_IsNumber(json_) &&
            json_->valuedouble == static_cast<double>(json_->valueint))
        {
            value = json_->valueint;
        }
        else if (cJSON_IsString(json_) && parse_number(text(), value))
        {}
        else
        {
            reject("expected an integer");
        }
        if (value < low || value > high)
        {
            reject("out of range " + std::to_string(low) + ".." +
                   std::to_string(high));
        }
        return value;
    }

    // Bytes as a hex string ("0a 1b", spaces optional) or a list of numbers.
    std::vector<uint8_t> bytes() const
    {
        std::vector<uint8_t> found;
        if (!cJSON_IsString(json_))
        {
            for (const Node& item : items())
            {
                found.push_back(static_cast<uint8_t>(item.number(0, 255)));
            }
            return found;
        }
        std::string digits;
        for (char c : text())
        {
            if (std::isspace(static_cast<unsigned char>(c)) == 0)
            {
                digits += c;
            }
        }
        if (digits.size() % 2 != 0 ||
            digits.find_first_not_of("0123456789abcdefABCDEF") !=
                std::string::npos)
        {
            reject("expected pairs of hex digits");
        }
        for (std::size_t i = 0; i < digits.size(); i += 2)
        {
            found.push_back(static_cast<uint8_t>(
                std::stoul(digits.substr(i, 2), nullptr, 16)));
        }
        return found;
    }

  private:
    std::string inside(const std::string& key) const
    {
        return where_.empty() ? key : where_ + "." + key;
    }

    void expect(bool holds, const char* what) const
    {
        if (!holds)
        {
            reject(std::string("expected ") + what);
        }
    }

    const cJSON* json_;
    std::string where_;
};

std::vector<uint8_t> read_file(const std::filesystem::path& path,
                               const Node& where)
{
    std::ifstream in(path, std::ios::binary);
    if (!in)
    {
        where.reject("cannot read " + path.string());
    }
    return {std::istreambuf_iterator<char>(in),
            std::istreambuf_iterator<char>()};
}

class BoardReader
{
  public:
    explicit BoardReader(const std::string& path) :
        directory_(std::filesystem::path(path).parent_path())
    {}

    Board read(const Node& root)
    {
        root.allow_only({"buses", "fru_devices"});
        for (const Node& bus : root["buses"].items())
        {
            read_bus(bus);
        }
        if (root.has("fru_devices"))
        {
            std::set<int> ids;
            for (const Node& device : root["fru_devices"].items())
            {
                board_.fru_devices.push_back(read_fru_device(device));
                if (!ids.insert(board_.fru_devices.back().id).second)
                {
                    device["id"].reject("used twice");
                }
            }
        }
        return std::move(board_);
    }

  private:
    void read_bus(const Node& node)
    {
        node.allow_only({"bus", "without", "devices"});
        Bus bus{static_cast<int>(node["bus"].number(0, 1023))};
        if (node.has("without"))
        {
            for (const Node& name : node["without"].items())
            {
                const auto found = function_names.find(name.text());
                if (found == function_names.end())
                {
                    name.reject("unknown function \"" + name.text() + "\"");
                }
                bus.removed_functions |= found->second;
            }
        }
        if (node.has("devices"))
        {
            for (const Node& device : node["devices"].items())
            {
                board_.devices.push_back(read_device(device, bus.number));
            }
        }
        board_.buses.push_back(bus);
    }

    Device read_device(const Node& node, int bus)
    {
        const auto type = type_names.find(node["type"].text());
        if (type == type_names.end())
        {
            node["type"].reject("unknown device type");
        }
        Device device;
        device.type = type->second;
        device.bus = bus;
        device.address = static_cast<uint8_t>(node["address"].number(0, 0x7f));
        switch (device.type)
        {
            case DeviceType::cpld:
                node.allow_only(
                    {"type", "address", "contents", "file", "bytes"});
                device.memory.assign(256, 0x00);
                break;
            case DeviceType::eeprom:
            {
                node.allow_only({"type", "address", "size", "address_bytes",
                                 "contents", "file", "bytes"});
                const long size = node["size"].number(1, 65536);
                device.address_bytes =
                    node.has("address_bytes")
                        ? static_cast<int>(node["address_bytes"].number(1, 2))
                        : (size <= 256 ? 1 : 2);
                // An erased part reads all ones.
                device.memory.assign(static_cast<std::size_t>(size), 0xff);
                break;
            }
            case DeviceType::pca9546:
                node.allow_only({"type", "address", "channels"});
                for (const Node& channel : node["channels"].items())
                {
                    device.channels.push_back(
                        static_cast<int>(channel.number(0, 1023)));
                }
                return device;
        }
        fill_memory(node, device.memory);
        return device;
    }

    static FruDevice read_fru_device(const Node& node)
    {
        node.allow_only({"id", "bus", "address", "size", "method",
                         "offset_width", "base", "mux", "state"});
        FruDevice device;
        device.id = static_cast<int>(node["id"].number(0, 255));
        device.bus = static_cast<int>(node["bus"].number(0, 255));
        device.address = static_cast<uint8_t>(node["address"].number(0, 0x7f));
        device.size = static_cast<unsigned>(node["size"].number(1, 65535));
        const std::string method = node["method"].text();
        if (method != "i2c" && method != "sysfs")
        {
            node["method"].reject("expected \"i2c\" or \"sysfs\"");
        }
        device.method = method == "i2c" ? 2 : 3;
        device.offset_width = static_cast<uint8_t>(
            node.has("offset_width") ? node["offset_width"].number(1, 2)
                                     : (device.size > 256 ? 2 : 1));
        if (node.has("base"))
        {
            device.base = static_cast<unsigned>(node["base"].number(0, 65535));
        }
        if (node.has("state"))
        {
            device.state = static_cast<uint8_t>(node["state"].number(0, 255));
        }
        if (node.has("mux"))
        {
            const Node mux = node["mux"];
            mux.allow_only({"address", "channel"});
            device.behind_mux = true;
            device.mux_address =
                static_cast<uint8_t>(mux["address"].number(0, 0x7f));
            device.mux_channel =
                static_cast<uint8_t>(mux["channel"].number(0, 7));
        }
        return device;
    }

    // "contents" and "file" fill from offset 0; "bytes" then sets single
    // offsets: {"0x10": "0xa5"}.
    void fill_memory(const Node& node, std::vector<uint8_t>& memory) const
    {
        for (const char* key : {"contents", "file"})
        {
            if (!node.has(key))
            {
                continue;
            }
            const std::vector<uint8_t> data =
                key == std::string("file")
                    ? read_file(directory_ / node[key].text(), node[key])
                    : node[key].bytes();
            if (data.size() > memory.size())
            {
                node[key].reject("larger than the device");
            }
            std::copy(data.begin(), data.end(), memory.begin());
        }
        if (!node.has("bytes"))
        {
            return;
        }
        for (const auto& [offset, value] : node["bytes"].members())
        {
            long at = 0;
            if (!parse_number(offset, at) || at < 0 ||
                at >= static_cast<long>(memory.size()))
            {
                value.reject("not an offset of the device");
            }
            memory[static_cast<std::size_t>(at)] =
                static_cast<uint8_t>(value.number(0, 255));
        }
    }

    std::filesystem::path directory_;
    Board board_;
};

} // namespace

Board read_board(const std::string& path)
{
    std::ifstream in(path, std::ios::binary);
    if (!in)
    {
        throw std::runtime_error(path + ": cannot read the board file");
    }
    std::ostringstream text;
    text << in.rdbuf();
    const std::unique_ptr<cJSON, decltype(&cJSON_Delete)> json(
        cJSON_Parse(text.str().c_str()), cJSON_Delete);
    if (json == nullptr)
    {
        throw std::runtime_error(path + ": not valid JSON");
    }
    try
    {
        return BoardReader(path).read(Node(json.get(), ""));
    }
    catch (const std::runtime_error& error)
    {
        throw std::runtime_error(path + ": " + error.what());
    }
}

} // namespace kv::sim
