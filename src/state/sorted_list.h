// The sorted-list-with-sweep mechanism behind the TPM report, TPM status and NTP unicast caches:
// a whole-table set marks every entry it names (finding or inserting its node in key order) and
// then sweeps away the nodes it did not mark, so surviving keys keep their nodes.
#pragma once

#include <cstddef>
#include <cstdint>
#include <cstring>
#include <map>

#include "securec.h"

#include "binding/memory.h"
#include "binding/script_frame.h"
#include "state/dlist.h"

namespace qav {

// Node must be a standard-layout record with `DLink link`, `uint32_t availFlag` and `Data data`;
// Traits gives `static int Compare(const Data &, const Data &)` (-1, 0, 1).
template <typename Node, typename Traits> class SortedSweepList {
  public:
    // A head still zero from load (the table never initialised) is made an empty list.
    explicit SortedSweepList(DLink *head) : head_(head), hint_(head) {
        if (head->next == nullptr) DListInit(head);
    }

    static Node *NodeOf(DLink *link) {
        return reinterpret_cast<Node *>(reinterpret_cast<char *>(link) - offsetof(Node, link));
    }

    // The node holding `key`, or a new node (zero-filled, then given `key`) linked before the
    // first greater key; null when the allocation fails. `created` tells which.
    Node *FindOrInsert(const typename Traits::Data &key, bool *created) {
        DLink *pos = Position(key);
        if (pos != head_ && Traits::Compare(NodeOf(pos)->data, key) == 0) {
            *created = false;
            hint_ = pos;
            return NodeOf(pos);
        }
        auto *node = static_cast<Node *>(PlatformAlloc(sizeof(Node)));
        if (node == nullptr) return nullptr;
        *node = Node{};
        // The key goes in at once: the index orders nodes by it.
        node->data = key;
        DListInsertBefore(pos, &node->link);
        *created = true;
        hint_ = &node->link;
        if (indexed_) Index(node);
        return node;
    }

    // Frees every node the set did not mark and clears the marks of the others.
    void Sweep() {
        for (DLink *pos = head_->next; pos != head_;) {
            DLink *next = pos->next;
            Node *node = NodeOf(pos);
            if (node->availFlag == 0) {
                DListUnlink(pos);
                PlatformFree(node);
            } else {
                node->availFlag = 0;
            }
            pos = next;
        }
        hint_ = head_;
        index_.clear();
        indexed_ = false;
    }

  private:
    using Data = typename Traits::Data;
    struct Less {
        bool operator()(const Data *a, const Data *b) const { return Traits::Compare(*a, *b) < 0; }
    };
    // Steps a search may walk forward from the last node before it asks the index instead.
    static constexpr int kShortWalk = 8;

    // The first node whose key is not below `key`, or the head.
    //
    // A key beyond the node found last is searched forward from that node, so a set given in key
    // order walks the list once in all (linear time) and never needs more. The first key that
    // comes out of order builds an ordered index of the nodes; from then on a forward search
    // that does not end within a few steps, and every search for a smaller key, asks the index
    // (logarithmic time). The position found is the same either way.
    DLink *Position(const Data &key) {
        if (hint_ != head_ && Traits::Compare(NodeOf(hint_)->data, key) < 0) {
            DLink *pos = hint_->next;
            for (int steps = 0; pos != head_; pos = pos->next, ++steps) {
                if (Traits::Compare(NodeOf(pos)->data, key) >= 0) return pos;
                if (indexed_ && steps >= kShortWalk) break;
            }
            if (pos == head_) return head_;
        }
        if (!indexed_ && !indexFailed_) BuildIndex();
        if (indexed_) {
            auto found = index_.lower_bound(&key);
            return found == index_.end() ? head_ : found->second;
        }
        DLink *pos = head_->next;
        while (pos != head_ && Traits::Compare(NodeOf(pos)->data, key) < 0)
            pos = pos->next;
        return pos;
    }

    void BuildIndex() {
        indexed_ = true;
        for (DLink *pos = head_->next; indexed_ && pos != head_; pos = pos->next)
            Index(NodeOf(pos));
    }

    // Without memory for the index the searches walk the list, with the same results.
    void Index(Node *node) {
        try {
            index_.emplace_hint(index_.end(), &node->data, &node->link);
        } catch (...) {
            index_.clear();
            indexed_ = false;
            indexFailed_ = true;
        }
    }

    DLink *head_;
    DLink *hint_;
    std::map<const Data *, DLink *, Less> index_;
    bool indexed_ = false;
    bool indexFailed_ = false;
};

// Stores the item table {fid = fid, value = <pushed by pushValue>} as element `position` of the
// array at the absolute index `arrayIndex`.
template <typename PushValue>
void StoreItem(lua_State *state, int32_t arrayIndex, uint32_t position, uint32_t fid, PushValue pushValue) {
    SYSDT_SPTI_PushUInt(state, position);
    TableBuilder item{state};
    item.UInt("fid", fid);
    pushValue();
    SYSDT_SPTI_SetField(state, item.index, "value");
    SYSDT_SPTI_SetTable(state, arrayIndex);
}

// The item form shared by the cached tables: an entry is an array of {fid, value} items.
enum class FieldKind {
    Int,        // any value, converted as a signed integer
    StrictUInt, // must be a number; pushed back as a signed integer
    StrictBool, // must be a boolean
    Text        // copied bounded; a value without a string form is skipped
};

struct ItemField {
    uint32_t fid;
    FieldKind kind;
    size_t offset; // within the data record
    uint32_t size; // text buffer size
};

// Result of a pull whose item value has the wrong type.
inline constexpr uint32_t kBadItemValue = 0x801707;

// Reads the items of the entry table at the absolute index `entry` into `data`, walking from
// item 1 while each is a table; unknown fids are ignored. `seen` gets bit i for every field i
// stored. 0, or kBadItemValue when a strict field has the wrong type.
template <size_t N>
uint32_t PullItems(lua_State *state, int32_t entry, const ItemField (&fields)[N], void *data,
                   uint32_t *seen) {
    auto *bytes = static_cast<unsigned char *>(data);
    *seen = 0;
    for (int32_t position = 1;; ++position) {
        SYSDT_SPTI_PushInt(state, position);
        SYSDT_SPTI_GetTable(state, entry);
        int32_t item = SYSDT_SPTI_GetTop(state);
        if (SYSDT_SPTI_IsTable(state, item) == 0) {
            SYSDT_SPTI_Pop(state, 1);
            return 0;
        }
        uint32_t fid = FieldUInt(state, item, "fid");
        SYSDT_SPTI_GetField(state, item, "value");
        uint32_t rc = 0;
        for (size_t i = 0; i < N; ++i) {
            const ItemField &field = fields[i];
            if (field.fid != fid) continue;
            unsigned char *target = bytes + field.offset;
            switch (field.kind) {
            case FieldKind::Int: {
                int32_t value = SYSDT_SPTI_ToInt(state, -1);
                memcpy(target, &value, sizeof value);
                *seen |= 1u << i;
                break;
            }
            case FieldKind::StrictUInt: {
                if (SYSDT_SPTI_IsNumber(state, -1) == 0) {
                    rc = kBadItemValue;
                    break;
                }
                uint32_t value = SYSDT_SPTI_ToUInt(state, -1);
                memcpy(target, &value, sizeof value);
                *seen |= 1u << i;
                break;
            }
            case FieldKind::StrictBool: {
                if (SYSDT_SPTI_IsBool(state, -1) == 0) {
                    rc = kBadItemValue;
                    break;
                }
                uint32_t value = static_cast<uint32_t>(SYSDT_SPTI_ToBoolean(state, -1));
                memcpy(target, &value, sizeof value);
                *seen |= 1u << i;
                break;
            }
            case FieldKind::Text: {
                const char *text = SYSDT_SPTI_ToString(state, -1);
                if (text == nullptr) break;
                (void)strncpy_s(reinterpret_cast<char *>(target), field.size, text, field.size - 1);
                *seen |= 1u << i;
                break;
            }
            }
            break;
        }
        SYSDT_SPTI_Pop(state, 2);
        if (rc != 0) return rc;
    }
}

// Pushes a new array holding one item table per field, in field order.
template <size_t N> void PushItems(lua_State *state, const ItemField (&fields)[N], const void *data) {
    const auto *bytes = static_cast<const unsigned char *>(data);
    TableBuilder items{state};
    for (size_t i = 0; i < N; ++i) {
        const ItemField &field = fields[i];
        const unsigned char *source = bytes + field.offset;
        StoreItem(state, items.index, static_cast<uint32_t>(i + 1), field.fid, [&] {
            int32_t number = 0;
            switch (field.kind) {
            case FieldKind::Int:
            case FieldKind::StrictUInt:
                memcpy(&number, source, sizeof number);
                SYSDT_SPTI_PushInt(state, number);
                break;
            case FieldKind::StrictBool:
                memcpy(&number, source, sizeof number);
                SYSDT_SPTI_PushBool(state, number);
                break;
            case FieldKind::Text: {
                const char *text = reinterpret_cast<const char *>(source);
                SYSDT_SPTI_PushLString(state, text, static_cast<uint32_t>(strnlen(text, field.size)));
                break;
            }
            }
        });
    }
}

} // namespace qav
