// Any bytes as a datagram: the reader must visit what is valid and refuse the rest, and what it visited must
// survive a writer and a second reading.

#include <cstdlib>

#include "rtps/wire/message.h"

namespace {

using namespace meridian::rtps;

void require(bool condition) {
    if (!condition)
        std::abort();
}

/// Reads every byte a view names, so that the address sanitizer sees one that is not there.
unsigned touch(ByteView view) {
    unsigned sum = 0;
    for (const uint8_t byte : view)
        sum += byte;
    return sum;
}

/// Checks what the contract promises of each submessage, and writes it again.
class Rewriter : public MessageVisitor {
  public:
    explicit Rewriter(MessageWriter& writer) : writer_(writer) {}

    void on_data(const MessageContext&, const Data& data) override {
        require(data.sequence_number > 0);
        require(data.has_payload || data.payload.empty());
        touch(data.inline_qos);
        touch(data.payload);
        written(writer_.add_data(data));
    }
    void on_data_frag(const MessageContext&, const DataFrag& fragment) override {
        require(fragment.sequence_number > 0 && fragment.fragment_size != 0 && fragment.sample_size != 0);
        require(fragment.first_fragment != 0 && fragment.fragment_count != 0);
        const uint64_t begin = uint64_t{fragment.first_fragment - 1} * fragment.fragment_size;
        require(begin + fragment.payload.size <= fragment.sample_size && !fragment.payload.empty());
        touch(fragment.inline_qos);
        touch(fragment.payload);
        written(writer_.add_data_frag(fragment));
    }
    void on_heartbeat(const MessageContext&, const Heartbeat& heartbeat) override {
        require(heartbeat.first > 0 && heartbeat.last >= heartbeat.first - 1);
        written(writer_.add_heartbeat(heartbeat));
    }
    void on_acknack(const MessageContext&, const AckNack& acknack) override {
        require(acknack.missing.num_bits <= SequenceNumberSet::kMaxBits);
        for (uint32_t i = acknack.missing.num_bits; i < SequenceNumberSet::kMaxBits; ++i)
            require((acknack.missing.bitmap[i / 32] >> (31 - i % 32) & 1u) == 0);
        written(writer_.add_acknack(acknack));
    }
    void on_nack_frag(const MessageContext&, const NackFrag& nack) override {
        written(writer_.add_nack_frag(nack));
    }
    void on_gap(const MessageContext&, const Gap& gap) override { written(writer_.add_gap(gap)); }

    size_t count = 0;

  private:
    void written(bool done) { count += done ? 1 : 0; }

    MessageWriter& writer_;
};

} // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* bytes, size_t size) {
    MessageWriter first(GuidPrefix(), 65000);
    Rewriter rewriter(first);
    read_message(ByteView(bytes, size), rewriter);
    MessageWriter second(GuidPrefix(), 65000);
    Rewriter again(second);
    require(read_message(first.view(), again) == ReadStatus::ok);
    require(again.count == rewriter.count && first.size() == second.size());
    for (size_t i = 0; i < first.size(); ++i)
        require(first.view().data[i] == second.view().data[i]);
    return 0;
}
