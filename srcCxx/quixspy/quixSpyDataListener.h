#pragma once

// The listener of one subscribed topic: one line per sample, the counters of the statistics, and a few events
// of its reader.

#include <atomic>
#include <cstdint>
#include <mutex>
#include <string>

#include "agent/QuixAgentOutput.h"
#include "meridian/dynamic_data.h"
#include "meridian/listener.h"
#include "meridian/sample_info.h"
#include "meridian/semaphore.h"
#include "meridian/type_code.h"
#include "quixspy/quixSpyEnding.h"
#include "quixspy/quixSpyEndpointInfo.h"
#include "quixspy/quixSpyHelpers.h"
#include "quixspy/quixSpySampleLine.h"

struct DynamicType;

/// How a listener reports its topic. Does not change while the listener lives.
struct QuixSpyDataListenerSettings {
    QuixSpySampleLineFields fields;
    int32_t topicWidth = 50;
    int32_t typeWidth = 50;
    PrintSample printSample = PRINT_SAMPLE_NONE;
    bool useDynamicData = false;              // the reader delivers DDS_DynamicData, not opaque samples
    float deadline = -1.0F;                   // seconds; -1: none
    QUIXSemaphore* outputSemaphore = nullptr; // not owned; one for all listeners, so that lines do not mix
    QuixAgentOutput* output = nullptr;        // not owned; not null
    QuixSpyEnding* ending = nullptr;          // not owned; null for a listener whose run never ends
};

/// Callbacks run on the middleware's delivery threads; record_writer and the reading of counters and names on
/// any thread.
class QuixSpyDataListener : public DDSDataReaderListener {
  public:
    /// Copies the names, which are not null. Adopts the type code (null when the type is not known), a clone
    /// made by the type-code factory.
    QuixSpyDataListener(const char* topic, const char* type, DDS_TypeCode* code,
                        const QuixSpyDataListenerSettings& settings);
    QuixSpyDataListener(const QuixSpyDataListener&) = delete;
    QuixSpyDataListener& operator=(const QuixSpyDataListener&) = delete;
    /// Waits for a callback in progress; none comes after that.
    ~QuixSpyDataListener() override;

    /// Makes a writer of the topic known, or known anew: its samples are then reported with its address, name
    /// and partitions. False, with a message, when it cannot be stored.
    bool record_writer(const RtpsGuid& guid, const char* ip, const DDS_EntityNameQosPolicy& entityName,
                       const DDS_StringSeq& endpointPartitions, const DDS_StringSeq& participantPartitions);

    /// Takes and reports all samples that the reader has. Only lines on a terminal are flushed.
    void on_data_available(DDSDataReader* reader) override;
    void on_requested_deadline_missed(DDSDataReader* reader,
                                      const DDS_RequestedDeadlineMissedStatus& status) override;
    void on_requested_incompatible_qos(DDSDataReader* reader,
                                       const DDS_RequestedIncompatibleQosStatus& status) override;
    void on_subscription_matched(DDSDataReader* reader, const DDS_SubscriptionMatchedStatus& status) override;
    /// Flushes what all data listeners put since the last time.
    void on_deliveries_end() override;

    /// Counts a sample and prints its line, with contents where they are asked for, and flushes. `sample` is
    /// a DDS_DynamicData or a DynamicType, as the settings say; null without valid data. One thread at a
    /// time.
    void print_user_data(const DDS_SampleInfo& info, const void* sample);

    /// Once detached: takes the samples that its reader has and counts them as dropped.
    void drop_waiting(QuixSpyEnding& ending);

    /// Whether it serves a reader of dynamic data, and not of bytes.
    bool uses_dynamic_data() const { return settings_.useDynamicData; }
    /// Whether it can print contents.
    bool knows_type() const { return uses_dynamic_data() || typeCode_ != nullptr; }
    /// Whether it serves a reader of a topic with key.
    bool is_keyed() const { return settings_.fields.isKeyed; }

    char* const topicName; // owned (DDS_String)
    char* const typeName;  // owned (DDS_String)
    std::atomic<uint64_t> dataSampleCount{0};
    std::atomic<uint64_t> disposeSampleCount{0};
    std::atomic<uint64_t> noWritersSampleCount{0};

  private:
    template <typename Reader, typename Sequence, typename Function>
    void take_samples(Reader* reader, Function function);
    template <typename Function>
    void take_all(DDSDataReader* reader, Function function);
    // The contents, behind what stands in lines_ already. The first decides which of the others does it.
    void print_sample(const DDS_SampleInfo& info, const void* sample);
    bool print_sample(const DDS_DynamicData& sample, int32_t indent);
    bool print_sample(const DynamicType& sample, const DDS_TypeCode* typeCode, int32_t indent);
    bool print_plain(const DDS_DynamicData& sample, int32_t indent);
    bool print_compact(const DDS_DynamicData& sample);
    bool fail_compact(DDS_ReturnCode_t result);
    void put_lines();
    void report(const DDS_SampleInfo& info, const void* sample);
    void count(const DDS_SampleInfo& info);
    const QuixSpyEndpointInfo& writer_of(const DDS_SampleInfo& info);

    DDS_TypeCode* const typeCode_; // owned, may be null
    const QuixSpyDataListenerSettings settings_;
    QuixAgentOutput& output_;
    DDSDataReader* reader_ = nullptr; // the one that has called; its calls are one at a time
    const std::string topicField_;
    // Lines that go out together, and the one being made. For all topics, whose listeners are called on one
    // thread.
    static thread_local std::string lines_;

    QuixSpyEndpointInfo lastWriter_{}; // owned; a copy, for the thread that reports samples
    uint64_t lastWriterVersion_ = 0;   // the version of writerList_ that it was copied from

    // Writers become known on the main thread while samples are reported on a delivery thread.
    std::mutex writersMutex_;
    QuixSpyEndpointInfoList writerList_;         // guarded by writersMutex_
    size_t writerOctets_ = 0;                    // of their names and partitions; likewise
    std::atomic<uint64_t> writerListVersion_{1}; // counts what was recorded; changed under writersMutex_
};
