// SPDX-License-Identifier: Apache-2.0
// The result files of the card detectors: a 32-bit little-endian count and
// room for 8 entries of a fixed width, written whole.
#pragma once

#include <array>
#include <cstddef>
#include <cstdint>

namespace kv::detail
{

template <std::size_t Width>
class CardResults
{
  public:
    using Entry = std::array<uint8_t, Width>;
    static constexpr std::size_t kCapacity = 8;

    // False, and nothing kept, once the file is full.
    bool add(const Entry& entry)
    {
        if (count_ == kCapacity)
        {
            return false;
        }
        entries_[count_++] = entry;
        return true;
    }
    std::size_t count() const
    {
        return count_;
    }
    // Writes the file when a card was found; an earlier file stays as it is
    // when none was.
    void publish(const char* path) const;

  private:
    std::array<Entry, kCapacity> entries_{};
    std::size_t count_ = 0;
};

extern template class CardResults<3>;
extern template class CardResults<4>;

} // namespace kv::detail
