#include "rtps/protocol/message_batcher.h"

#include <algorithm>

namespace meridian::rtps {

namespace {

// Destinations known at a time: bounds memory. Beyond them nothing waits for company.
constexpr size_t kMaxOpen = 256;
// Header, INFO_DST, INFO_TS and the fixed part of a DATA_FRAG, plus padding.
constexpr size_t kOverhead = kHeaderSize + 16 + 12 + 40 + 8;

} // namespace

struct MessageBatcher::Open {
    Open(const GuidPrefix& source, size_t max_size) : writer(source, max_size) {}
    void clear() {
        writer.clear();
        prefix = kUnknownPrefix;
        timestamp.reset();
        haste = Haste::may_wait;
    }

    /// When what it holds must be sent.
    MonotonicTime due() const { return haste == Haste::now ? MonotonicTime{0} : sent_at + kLongestWait; }

    /// A state to return to.
    struct Mark {
        size_t size;
        GuidPrefix prefix;
        std::optional<WireTime> timestamp;
    };
    Mark mark() const { return {writer.size(), prefix, timestamp}; }
    void return_to(const Mark& mark) {
        writer.cut(mark.size);
        prefix = mark.prefix;
        timestamp = mark.timestamp;
    }

    Locator destination;
    MessageWriter writer;
    GuidPrefix prefix;                 // of the INFO_DST in force
    std::optional<WireTime> timestamp; // of the INFO_TS in force
    Haste haste = Haste::may_wait;
    MonotonicTime sent_at = -kLongestWait; // the datagram before this one
};

MessageBatcher::MessageBatcher(const GuidPrefix& source, size_t max_size, Output& output)
    : source_(source), max_size_(max_size), output_(output) {}

MessageBatcher::~MessageBatcher() = default;

void MessageBatcher::set_source(const GuidPrefix& source) {
    source_ = source;
    messages_.clear();
}

size_t MessageBatcher::max_payload(size_t inline_qos_size) const {
    const size_t overhead = kOverhead + inline_qos_size;
    return max_size_ > overhead ? max_size_ - overhead : 0;
}

MessageBatcher::Open& MessageBatcher::open(const Locator& destination) {
    // What is for all goes to them in the same order again and again.
    for (size_t i = 0; i < messages_.size(); ++i) {
        if (messages_[latest_]->destination == destination)
            return *messages_[latest_];
        latest_ = latest_ + 1 < messages_.size() ? latest_ + 1 : 0;
    }
    if (messages_.size() < kMaxOpen) {
        messages_.push_back(std::make_unique<Open>(source_, max_size_));
    } else {
        const auto is_older = [](const auto& a, const auto& b) { return a->sent_at < b->sent_at; };
        std::iter_swap(std::min_element(messages_.begin(), messages_.end(), is_older), messages_.end() - 1);
        send(*messages_.back());
        messages_.back()->sent_at = -kLongestWait;
    }
    latest_ = messages_.size() - 1;
    messages_.back()->destination = destination;
    return *messages_.back();
}

void MessageBatcher::send(Open& message) {
    if (!message.writer.empty())
        output_.send(message.writer.view(), message.destination);
    message.clear();
}

void MessageBatcher::flush() {
    for (const auto& message : messages_)
        send(*message);
    next_deadline_ = kNever;
}

void MessageBatcher::flush_due(MonotonicTime now) {
    if (next_deadline_ > now)
        return;
    next_deadline_ = kNever;
    for (const auto& message : messages_) {
        if (message->writer.empty())
            continue;
        if (message->due() > now) {
            next_deadline_ = std::min(next_deadline_, message->due());
            continue;
        }
        send(*message);
        message->sent_at = now;
    }
}

template <typename Append>
void MessageBatcher::append(const Route& to, const std::optional<WireTime>* timestamp, Append append_to,
                            Haste haste) {
    const auto try_append = [&](Open& message) {
        if (message.prefix != to.prefix) {
            if (!message.writer.add_info_destination(to.prefix))
                return false;
            message.prefix = to.prefix;
        }
        if (timestamp != nullptr && message.timestamp != *timestamp) {
            const bool added = *timestamp ? message.writer.add_info_timestamp(**timestamp)
                                          : message.writer.add_info_timestamp_invalid();
            if (!added)
                return false;
            message.timestamp = *timestamp;
        }
        return append_to(message.writer);
    };
    for (const Locator& locator : to.locators)
        append_to_one(to, locator, haste, try_append);
}

template <typename TryAppend>
void MessageBatcher::append_to_one(const Route& to, const Locator& locator, Haste haste,
                                   TryAppend try_append) {
    Open& message = open(locator);
    Open::Mark before = message.mark();
    if (!try_append(message)) {
        send(message);
        before = message.mark();
        if (!try_append(message)) {
            message.clear(); // does not fit in any message
            return;
        }
    }
    const size_t header = before.size == kHeaderSize ? kHeaderSize : 0;
    if (to.credit != nullptr && !to.credit->spend(header + message.writer.size() - before.size, locator)) {
        message.return_to(before);
        return;
    }
    if (haste == Haste::now)
        message.haste = Haste::now;
    next_deadline_ = std::min(next_deadline_, message.due());
}

void MessageBatcher::add(const Route& to, const Data& data, std::optional<WireTime> timestamp, Haste haste) {
    append(
        to, &timestamp, [&](MessageWriter& writer) { return writer.add_data(data); }, haste);
}

void MessageBatcher::add(const Route& to, const DataFrag& data, std::optional<WireTime> timestamp) {
    append(to, &timestamp, [&](MessageWriter& writer) { return writer.add_data_frag(data); });
}

void MessageBatcher::add(const Route& to, const Heartbeat& heartbeat, Haste haste) {
    append(
        to, nullptr, [&](MessageWriter& writer) { return writer.add_heartbeat(heartbeat); }, haste);
}

void MessageBatcher::add(const Route& to, const AckNack& acknack, Haste haste) {
    append(
        to, nullptr, [&](MessageWriter& writer) { return writer.add_acknack(acknack); }, haste);
}

void MessageBatcher::add(const Route& to, const NackFrag& nack) {
    append(to, nullptr, [&](MessageWriter& writer) { return writer.add_nack_frag(nack); });
}

void MessageBatcher::add(const Route& to, const Gap& gap) {
    append(to, nullptr, [&](MessageWriter& writer) { return writer.add_gap(gap); });
}

} // namespace meridian::rtps
