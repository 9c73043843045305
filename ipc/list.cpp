// SPDX-License-Identifier: Apache-2.0
// Singly linked lists of byte blobs. Nodes and their data are malloc'd:
// callers release what GetHeadList hands them with free().
#include <libkv/ipc.h>

#include <cstdlib>
#include <cstring>

namespace
{

ListNode* new_node(const void* data, size_t size)
{
    if ((data == nullptr && size != 0) || size > UINT32_MAX)
    {
        return nullptr;
    }
    auto* node = static_cast<ListNode*>(std::malloc(sizeof(ListNode)));
    void* copy = std::malloc(size == 0 ? 1 : size);
    if (node == nullptr || copy == nullptr)
    {
        std::free(node);
        std::free(copy);
        return nullptr;
    }
    if (size != 0)
    {
        std::memcpy(copy, data, size);
    }
    node->data = copy;
    node->size = static_cast<uint32_t>(size);
    node->next = nullptr;
    return node;
}

} // namespace

extern "C" ListNode* CreateList(unsigned /*reserved*/, const void* data,
                                size_t size)
{
    return new_node(data, size);
}

extern "C" ListNode* InsertLastList(ListNode* last, const void* data,
                                    size_t size)
{
    if (last == nullptr)
    {
        return nullptr;
    }
    ListNode* node = new_node(data, size);
    if (node != nullptr)
    {
        last->next = node;
    }
    return node;
}

extern "C" ListNode* GetHeadList(ListNode** list)
{
    if (list == nullptr || *list == nullptr)
    {
        return nullptr;
    }
    ListNode* head = *list;
    *list = head->next;
    head->next = nullptr;
    return head;
}

extern "C" void ClearList(ListNode** list)
{
    while (ListNode* head = GetHeadList(list))
    {
        std::free(head->data);
        std::free(head);
    }
}
