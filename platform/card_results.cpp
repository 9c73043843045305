// SPDX-License-Identifier: Apache-2.0
#include "platform/card_results.h"

#include "foundation/byte_order.h"
#include "foundation/resources.h"

namespace kv::detail
{

template <std::size_t Width>
void CardResults<Width>::publish(const char* path) const
{
    if (count_ == 0)
    {
        return;
    }
    std::array<uint8_t, 4 + kCapacity * Width> bytes{};
    store_le32(bytes.data(), static_cast<uint32_t>(count_));
    for (std::size_t i = 0; i < count_; ++i)
    {
        for (std::size_t b = 0; b < Width; ++b)
        {
            bytes[4 + i * Width + b] = entries_[i][b];
        }
    }
    if (UniqueFile file = open_file(path, "w+"))
    {
        std::fwrite(bytes.data(), 1, bytes.size(), file.get());
    }
}

template class CardResults<3>;
template class CardResults<4>;

} // namespace kv::detail
