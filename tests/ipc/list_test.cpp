// SPDX-License-Identifier: Apache-2.0
// Lists of byte blobs: private copies, order, and ownership on removal.
#include <libkv/ipc.h>

#include <gtest/gtest.h>

#include <cstdlib>
#include <string>

namespace
{

// The sanitizer build reports anything ClearList leaves behind.
TEST(List, NodesKeepPrivateCopiesInOrder)
{
    EXPECT_EQ(nullptr, CreateList(0, nullptr, 4));
    EXPECT_EQ(nullptr, InsertLastList(nullptr, "a", 1));
    char first[] = "first";
    ListNode* list = CreateList(0, first, 5);
    first[0] = 'X';
    EXPECT_EQ(nullptr, InsertLastList(list, nullptr, 3));
    ListNode* last = list;
    for (const std::string text : {"second", "", "fourth", "fifth"})
    {
        last = InsertLastList(last, text.data(), text.size());
    }
    for (const std::string text : {"first", "second", "", "fourth"})
    {
        ListNode* head = GetHeadList(&list);
        ASSERT_NE(nullptr, head);
        EXPECT_EQ(text, std::string((char*)head->data, head->size));
        EXPECT_EQ(nullptr, head->next);
        std::free(head->data);
        std::free(head);
    }
    ClearList(&list);
    EXPECT_EQ(nullptr, list);
    EXPECT_EQ(nullptr, GetHeadList(&list));
    ClearList(&list);
}

} // namespace
