#pragma once

// The intrusive list of the spy: nodes carry their links, so that a node is one allocation and unlinks itself
// without a search. Lists and nodes are plain records: all zero is empty and unlinked. The list does not own
// its nodes; its users say who frees them.

#include <cstdint>

template <typename Node>
struct QuixSpyList;

/// What a node derives from. `list` is null while the node is in none.
template <typename Node>
struct QuixSpyListLink {
    QuixSpyList<Node>* list;
    QuixSpyListLink* next;
    QuixSpyListLink* previous;
};

template <typename Node>
struct QuixSpyList {
    QuixSpyListLink<Node> sentinel; // stands before the first node
    QuixSpyListLink<Node>* tail;    // the last node, null when there is none
    int32_t count;
    void* userData; // for the owner of the list

    Node* head() const { return static_cast<Node*>(sentinel.next); }
    static Node* next(const Node* node) { return static_cast<Node*>(node->next); }

    /// The node must be in no list.
    void append(Node* node) {
        QuixSpyListLink<Node>* const before = tail != nullptr ? tail : &sentinel;
        node->list = this;
        node->next = nullptr;
        node->previous = before;
        before->next = node;
        tail = node;
        ++count;
    }

    /// The node must be in this list; it stays the caller's.
    void unlink(Node* node) {
        node->previous->next = node->next;
        if (node->next != nullptr)
            node->next->previous = node->previous;
        if (tail == node)
            tail = node->previous != &sentinel ? node->previous : nullptr;
        --count;
        node->list = nullptr;
        node->next = nullptr;
        node->previous = nullptr;
    }
};
