// SPDX-License-Identifier: Apache-2.0
// Lists of byte blobs: private copies, order, and ownership on removal.
#include <libkv/ipc.h>

#include <gtest/gtest.h>

#include <cstdlib>
#include <string>

namespace
{

std::string text_of(const ListNode* node)
{
    return std::string(static_cast<const char*>(node->data), node->size);
}

void release(ListNode* node)
{
    std::free(node->data);
    std::free(node);
}

TEST(List, NodesKeepPrivateCopiesInOrder)
{
    char first[] = "first";
    ListNode* list = CreateList(0, first, 5);
    ASSERT_NE(list, nullptr);
    first[0] = 'X'; // the node does not share the caller's buffer
    ListNode* last = InsertLastList(list, "second", 6);
    ASSERT_NE(last, nullptr);
    last = InsertLastList(last, "", 0);
    ASSERT_NE(last, nullptr);

    ListNode* head = GetHeadList(&list);
    EXPECT_EQ(text_of(head), "first");
    release(head);
    head = GetHeadList(&list);
    EXPECT_EQ(text_of(head), "second");
    release(head);
    head = GetHeadList(&list);
    EXPECT_EQ(head->size, 0u);
    EXPECT_EQ(head->next, nullptr);
    release(head);
    EXPECT_EQ(list, nullptr);
    EXPECT_EQ(GetHeadList(&list), nullptr);
}

TEST(List, ClearFreesEverythingAndEmptiesTheList)
{
    ListNode* list = CreateList(0, "a", 1);
    ListNode* last = list;
    for (int i = 0; i < 100; ++i)
    {
        last = InsertLastList(last, "blob", 4);
    }
    ClearList(&list); // the sanitizer build reports anything left behind
    EXPECT_EQ(list, nullptr);
    ClearList(&list);
}

TEST(List, RefusesWhatItCannotCopy)
{
    EXPECT_EQ(CreateList(0, nullptr, 4), nullptr);
    EXPECT_EQ(InsertLastList(nullptr, "a", 1), nullptr);
    ListNode* list = CreateList(0, "a", 1);
    EXPECT_EQ(InsertLastList(list, nullptr, 3), nullptr);
    EXPECT_EQ(list->next, nullptr);
    ClearList(&list);
}

} // namespace
