#pragma once

// A reliable reader with one writer, whose messages a test makes, and what it answers.

#include <gtest/gtest.h>

#include <memory>
#include <vector>

#include "protocol/captured_output.h"
#include "rtps/protocol/reliable_reader.h"

namespace meridian::rtps::test {

class ReliableReaderTest : public ::testing::Test {
  protected:
    static constexpr EntityId kReader{0x00000107};
    static constexpr EntityId kWriter{0x00000102};

    struct Sink final : ReaderSink {
        std::vector<SequenceNumber> numbers;
        std::vector<size_t> sizes;
        std::vector<VendorId> vendors;
        std::vector<uint8_t> fast_cdrs;
        std::vector<bool> keys;
        uint64_t lost = 0;
        void on_sample(const Sample& sample) override {
            numbers.push_back(sample.sequence_number);
            sizes.push_back(sample.payload.size);
            vendors.push_back(sample.vendor);
            fast_cdrs.push_back(sample.fast_cdr);
            keys.push_back(sample.payload_is_key);
        }
        void on_lost(const Guid&, uint64_t count) override { lost += count; }
    };

    struct Observer final : ReaderObserver {
        int restarts = 0;
        std::vector<size_t> oversized;
        void on_writer_restarted(const Guid&) override { ++restarts; }
        void on_oversized_sample(const Guid&, size_t size, size_t) override { oversized.push_back(size); }
        void on_memory_used_up(const Guid&) override { ++memory_used_up; }
        void on_number_too_high(const Guid&) override { ++too_high; }
        int memory_used_up = 0;
        int too_high = 0;
    };

    void make(bool is_volatile, ReliableReader::Limits limits = {}, uint16_t quirks = 0,
              const ReaderConfig& config = {}) {
        reader = std::make_unique<ReliableReader>(kReader, is_volatile, config, limits, sink, observer,
                                                  batcher, timers);
        reader->add_writer(RemoteWriter{writer, Route{prefix(2), {udpv4(2)}}, {quirks, 2}}, now);
    }
    void data(SequenceNumber number, size_t size = 8) {
        const ByteBuffer payload(size, 1);
        reader->on_data(context, data_of(kWriter, number, payload), now);
    }
    void fragment(SequenceNumber number, FragmentNumber first, uint32_t sample_size = 25,
                  uint16_t size = 10) {
        const ByteBuffer payload(size, 1);
        DataFrag part = fragment_of(kWriter, number, first, sample_size, payload);
        part.payload_is_key = fragments_are_of_keys;
        reader->on_data_frag(context, part, now);
    }
    void heartbeat(SequenceNumber first, SequenceNumber last, bool final = false) {
        count = next_count(count); // may be at its end
        heartbeat_with_count(first, last, count, final);
    }
    void heartbeat_with_count(SequenceNumber first, SequenceNumber last, Count c, bool final = false) {
        Heartbeat h = heartbeat_of(kWriter, first, last, c);
        h.final = final;
        reader->on_heartbeat(writer, h, now);
    }
    void gap(SequenceNumber start, SequenceNumber base, std::vector<SequenceNumber> more = {}) {
        Gap g;
        g.writer = kWriter;
        g.start = start;
        g.list.base = base;
        for (SequenceNumber number : more)
            g.list.insert(number);
        reader->on_gap(writer, g, now);
    }
    Lines sent() {
        timers.run(now);
        batcher.flush();
        return output.take();
    }
    Lines sent_after(Duration pause) {
        now += pause;
        return sent();
    }

    MonotonicTime now = std::chrono::seconds(1);
    Count count = 0;
    bool fragments_are_of_keys = false;
    Guid writer{prefix(2), kWriter};
    MessageContext context = [] {
        MessageContext c;
        c.source = prefix(2);
        return c;
    }();
    CapturedOutput output;
    MessageBatcher batcher{prefix(1), 1400, output};
    TimerQueue timers;
    Sink sink;
    Observer observer;
    MemoryBudget memory{20000};
    std::unique_ptr<ReliableReader> reader;
};

} // namespace meridian::rtps::test
