#pragma once

// Finds the nodes of the spy's lists by key. Intrusive like the lists: a node carries its link, so that only
// the array of buckets is memory of the index. What comes from the network chooses the keys, so hashes are
// keyed (SipHash-1-3) with a number that each index draws for itself.

#include <cstddef>
#include <cstdint>
#include <cstdlib>
#include <string_view>

/// A hash that cannot be foreseen without the seed.
uint64_t QUIXSpy_hash(uint64_t seed, const void* bytes, size_t length);
/// The hash of two texts; ("a", "bc") and ("ab", "c") differ.
uint64_t QUIXSpy_hash(uint64_t seed, std::string_view first, std::string_view second);
/// A random number, not 0.
uint64_t QUIXSpy_seed();

/// What a node carries for each index that it stands in.
template <typename Node>
struct QuixSpyIndexLink {
    Node* next;
    Node** place; // what points to the node; null while it is in no index
    uint64_t hash;
};

/// A plain record, as the lists are: all zero is empty. `free` gives the memory back; nodes are not owned.
/// Without memory for a larger array the index goes on with the one that it has, and is slower.
template <typename Node, QuixSpyIndexLink<Node> Node::*Link>
struct QuixSpyIndex {
    Node** buckets;
    size_t bucketCount; // 0 or a power of two
    size_t nodeCount;
    uint64_t seed;
    mutable uint64_t comparisons; // made so far, for who measures

    uint64_t hash(const void* bytes, size_t length) { return QUIXSpy_hash(own_seed(), bytes, length); }
    uint64_t hash(std::string_view first, std::string_view second) {
        return QUIXSpy_hash(own_seed(), first, second);
    }

    /// The node inserted last of those with this hash for which `is_wanted` holds; null without one.
    template <typename Predicate>
    Node* find(uint64_t hash, Predicate is_wanted) const {
        if (bucketCount == 0)
            return nullptr;
        for (Node* node = buckets[hash & (bucketCount - 1)]; node != nullptr; node = (node->*Link).next) {
            ++comparisons;
            if ((node->*Link).hash == hash && is_wanted(*node))
                return node;
        }
        return nullptr;
    }

    /// The node must not be in the index. False when there is no memory for any array.
    bool insert(Node* node, uint64_t hash) {
        if (nodeCount >= bucketCount)
            grow();
        if (bucketCount == 0)
            return false;
        (node->*Link).hash = hash;
        push(node);
        ++nodeCount;
        return true;
    }

    /// Nothing happens for a node that is not in the index.
    void remove(Node* node) {
        QuixSpyIndexLink<Node>& link = node->*Link;
        if (link.place == nullptr)
            return;
        *link.place = link.next;
        if (link.next != nullptr)
            (link.next->*Link).place = link.place;
        link.place = nullptr;
        --nodeCount;
    }

    void free() {
        std::free(buckets);
        buckets = nullptr;
        bucketCount = nodeCount = 0;
    }

  private:
    uint64_t own_seed() {
        if (seed == 0)
            seed = QUIXSpy_seed();
        return seed;
    }
    void push(Node* node) {
        QuixSpyIndexLink<Node>& link = node->*Link;
        Node*& bucket = buckets[link.hash & (bucketCount - 1)];
        link.next = bucket;
        link.place = &bucket;
        if (bucket != nullptr)
            (bucket->*Link).place = &link.next;
        bucket = node;
    }
    void grow() {
        const size_t old_count = bucketCount;
        const size_t new_count = old_count == 0 ? 16 : 2 * old_count;
        auto** const larger = static_cast<Node**>(std::calloc(new_count, sizeof(Node*)));
        if (larger == nullptr)
            return;
        Node** const old = buckets;
        buckets = larger;
        bucketCount = new_count;
        for (size_t i = 0; i < old_count; ++i) {
            for (Node* node = old[i]; node != nullptr;) {
                Node* const following = (node->*Link).next;
                push(node);
                node = following;
            }
        }
        std::free(old);
    }
};
