// Intrusive doubly linked list: nodes live inside the objects that they link.
#pragma once

#include <cstddef>

template <typename T> class CXLinkedListNode;

/// Head and tail of an intrusive list. Owns nothing and takes no lock: whoever owns the list guards
/// it. Must be empty, or never touched again, when it goes away before its nodes.
template <typename T> class CXLinkedList {
public:
    CXLinkedList() = default;
    CXLinkedList(const CXLinkedList&) = delete;
    CXLinkedList& operator=(const CXLinkedList&) = delete;

    CXLinkedListNode<T>* GetHead() const { return m_head; }
    CXLinkedListNode<T>* GetTail() const { return m_tail; }
    bool IsEmpty() const { return m_head == nullptr; }

private:
    friend class CXLinkedListNode<T>;
    CXLinkedListNode<T>* m_head = nullptr;
    CXLinkedListNode<T>* m_tail = nullptr;
};

/// Link of one object in at most one list. The destructor does not unlink, since only the list's
/// owner knows the lock for it.
template <typename T> class CXLinkedListNode {
public:
    /// `self` is the object that this node belongs to.
    explicit CXLinkedListNode(T* self) : m_self(self) {}
    CXLinkedListNode(const CXLinkedListNode&) = delete;
    CXLinkedListNode& operator=(const CXLinkedListNode&) = delete;

    T* GetSelf() const { return m_self; }
    CXLinkedListNode* GetPrevious() const { return m_previous; }
    CXLinkedListNode* GetNext() const { return m_next; }
    CXLinkedList<T>* GetList() const { return m_list; }

    /// Links at the front; the node must not be in a list.
    void LinkFirst(CXLinkedList<T>& list) {
        m_previous = nullptr;
        m_next = list.m_head;
        (m_next != nullptr ? m_next->m_previous : list.m_tail) = this;
        list.m_head = this;
        m_list = &list;
    }
    /// Links at the end; the node must not be in a list.
    void LinkLast(CXLinkedList<T>& list) {
        m_next = nullptr;
        m_previous = list.m_tail;
        (m_previous != nullptr ? m_previous->m_next : list.m_head) = this;
        list.m_tail = this;
        m_list = &list;
    }
    /// Takes the node out of its list; does nothing when it is in none.
    void Unlink() {
        if (m_list == nullptr) {
            return;
        }
        (m_previous != nullptr ? m_previous->m_next : m_list->m_head) = m_next;
        (m_next != nullptr ? m_next->m_previous : m_list->m_tail) = m_previous;
        m_previous = nullptr;
        m_next = nullptr;
        m_list = nullptr;
    }

private:
    CXLinkedListNode* m_previous = nullptr;
    CXLinkedListNode* m_next = nullptr;
    CXLinkedList<T>* m_list = nullptr;
    T* m_self;
};
