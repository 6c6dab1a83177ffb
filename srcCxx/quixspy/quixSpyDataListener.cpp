#include "quixspy/quixSpyDataListener.h"

#include <cstring>
#include <new>
#include <optional>
#include <string_view>

#include "agent/QuixAgent.h"
#include "meridian/data_reader.h"
#include "meridian/dynamic_data_type_support.h"
#include "meridian/string.h"
#include "meridian/topic.h"
#include "quixspy/generated/DynamicTypeSupport.h"
#include "quixspy/quixSpyHelpers.h"
#include "quixspy/quixSpyRawPrinter.h"
#include "quixspy/quixSpyText.h"

namespace {

constexpr DDS_Duration_t kOutputWait{3, 0};
/// Of one topic. Where there were more, those are forgotten that wrote longest ago: most of them are gone.
constexpr int32_t kMostWriters = 4096;
/// Of their names and partitions: with ordinary ones the limit above is reached first.
constexpr size_t kMostWriterOctets = 512 * 1024;
/// Lines of samples that were taken together are handed on in such pieces.
constexpr size_t kMostTogether = 16 * 1024;
/// Memory of longer lines is not kept for the next one.
constexpr size_t kMostKept = 256 * 1024;

size_t octets_of(const QuixSpyEndpointInfo& writer) {
    size_t octets = 0;
    for (const char* const text : {writer.name, writer.participantPartition, writer.endpointPartition})
        octets += text != nullptr ? std::strlen(text) : 0;
    return octets;
}

const char* topic_of(DDSDataReader* reader) {
    DDSTopicDescription* const topic = reader != nullptr ? reader->get_topicdescription() : nullptr;
    return topic != nullptr ? topic->get_name() : nullptr;
}

/// One thread counts at a time; the statistics read whenever they like.
void add_one(std::atomic<uint64_t>& counter) {
    counter.store(counter.load(std::memory_order_relaxed) + 1, std::memory_order_relaxed);
}

} // namespace

thread_local std::string QuixSpyDataListener::lines_;

QuixSpyDataListener::QuixSpyDataListener(const char* topic, const char* type, DDS_TypeCode* code,
                                         const QuixSpyDataListenerSettings& settings)
    : topicName(DDS_String_dup(topic)),
      typeName(DDS_String_dup(type)),
      typeCode_(code),
      settings_(settings),
      output_(*settings.output),
      topicField_(QUIXSpy_formatTopicField(topic, settings.topicWidth, type, settings.typeWidth)),
      writerList_(output_) {}

QuixSpyDataListener::~QuixSpyDataListener() {
    detach(); // callbacks use the members below
    if (typeCode_ != nullptr) {
        if (DDS_TypeCodeFactory* const factory = DDS_TypeCodeFactory::get_instance()) {
            DDS_ExceptionCode_t exception = DDS_NO_EXCEPTION_CODE;
            factory->delete_tc(typeCode_, exception);
        }
    }
    DDS_String_free(topicName);
    DDS_String_free(typeName);
    lastWriter_.finalize();
}

bool QuixSpyDataListener::record_writer(const RtpsGuid& guid, const char* ip,
                                        const DDS_EntityNameQosPolicy& entityName,
                                        const DDS_StringSeq& endpointPartitions,
                                        const DDS_StringSeq& participantPartitions) {
    QuixSpyLocalEndpointInfo scratch;
    const std::lock_guard<std::mutex> lock(writersMutex_);
    ++writerListVersion_;
    // The lines of a topic name topic and type already.
    if (const QuixSpyEndpointInfoNode* const before = writerList_.find_node(guid))
        writerOctets_ -= octets_of(before->info);
    const bool recorded = writerList_.assert_node(scratch, guid, ip, nullptr, nullptr, entityName,
                                                  endpointPartitions, participantPartitions);
    if (const QuixSpyEndpointInfoNode* const now = writerList_.find_node(guid))
        writerOctets_ += octets_of(now->info);
    while (writerList_.count > kMostWriters || (writerOctets_ > kMostWriterOctets && writerList_.count > 1)) {
        writerOctets_ -= octets_of(writerList_.head()->info);
        writerList_.remove_node(writerList_.head());
    }
    return recorded;
}

/// What is known of the writer of a sample, with the unknown GUID where that is nothing. Samples come in rows
/// from one writer, so the copy is kept until another one wrote or something was recorded.
const QuixSpyEndpointInfo& QuixSpyDataListener::writer_of(const DDS_SampleInfo& info) {
    const RtpsGuid guid = QUIXSpy_writerGuid(info);
    if (RtpsGuid_equals(lastWriter_.guid, guid) && lastWriterVersion_ == writerListVersion_)
        return lastWriter_;
    lastWriter_.finalize();
    lastWriter_.guid = RtpsGuid{};
    const std::lock_guard<std::mutex> lock(writersMutex_);
    lastWriterVersion_ = writerListVersion_;
    QuixSpyEndpointInfoNode* const known = writerList_.find_node(guid);
    if (known == nullptr)
        return lastWriter_;
    writerList_.unlink(known); // to the end of those to forget
    writerList_.append(known);
    if (!lastWriter_.copy_from(known->info, output_))
        lastWriterVersion_ = 0; // the next sample tries again
    return lastWriter_;
}

void QuixSpyDataListener::on_data_available(DDSDataReader* reader) {
    QUIXSemaphore& semaphore = *settings_.outputSemaphore;
    reader_ = reader;
    if (semaphore.take(kOutputWait)) {
        // What comes after the end of the run is not counted.
        if (settings_.ending == nullptr || settings_.ending->takes_samples()) {
            take_all(reader, [this](const auto& samples, const auto& infos) {
                for (DDS_Long i = 0; i < infos.length(); ++i) {
                    if (settings_.ending != nullptr && settings_.ending->drops_samples(output_.is_behind())) {
                        settings_.ending->count_dropped(static_cast<uint64_t>(infos.length() - i));
                        break;
                    }
                    report(infos[i], infos[i].valid_data ? &samples[i] : nullptr);
                }
            });
        }
    } else {
        // The holder may be waiting for a terminal that was stopped: what it left behind is given too.
        output_.fail("quixpy error taking semaphore\n");
    }
    if (!semaphore.give())
        output_.fail("ferret fail giving semaphore\n");
}

void QuixSpyDataListener::drop_waiting(QuixSpyEnding& ending) {
    if (reader_ == nullptr)
        return;
    take_all(reader_, [&ending](const auto&, const auto& infos) {
        ending.count_dropped(static_cast<uint64_t>(infos.length()));
    });
}

/// The type that was registered for the topic decides what its reader is.
template <typename Function>
void QuixSpyDataListener::take_all(DDSDataReader* reader, Function function) {
    if (settings_.useDynamicData)
        take_samples<DDSDynamicDataReader, DDS_DynamicDataSeq>(DDSDynamicDataReader::narrow(reader),
                                                               function);
    else if (settings_.fields.isKeyed)
        take_samples<KeyedDynamicTypeDataReader, KeyedDynamicTypeSeq>(
            static_cast<KeyedDynamicTypeDataReader*>(reader), function);
    else
        take_samples<DynamicTypeDataReader, DynamicTypeSeq>(static_cast<DynamicTypeDataReader*>(reader),
                                                            function);
}

template <typename Reader, typename Sequence, typename Function>
void QuixSpyDataListener::take_samples(Reader* reader, Function function) {
    if (reader == nullptr) {
        output_.fail("DataReader narrow error\n");
        return;
    }
    Sequence samples;
    DDS_SampleInfoSeq infos;
    const DDS_ReturnCode_t taken = reader->take(samples, infos, DDS_LENGTH_UNLIMITED, DDS_ANY_SAMPLE_STATE,
                                                DDS_ANY_VIEW_STATE, DDS_ANY_INSTANCE_STATE);
    if (taken == DDS_RETCODE_NO_DATA)
        return;
    if (taken != DDS_RETCODE_OK) {
        output_.fail("take error %d\n", taken);
        return;
    }
    function(samples, infos);
    put_lines();
    const DDS_ReturnCode_t returned = reader->return_loan(samples, infos);
    if (returned != DDS_RETCODE_OK)
        output_.fail("return loan error %d\n", returned);
}

/// Samples of many topics come together; each write of their lines costs as much as several samples.
void QuixSpyDataListener::on_deliveries_end() {
    output_.flush();
}

void QuixSpyDataListener::count(const DDS_SampleInfo& info) {
    if (info.valid_data)
        add_one(dataSampleCount);
    else if (info.instance_state == DDS_NOT_ALIVE_DISPOSED_INSTANCE_STATE)
        add_one(disposeSampleCount);
    else if (info.instance_state == DDS_NOT_ALIVE_NO_WRITERS_INSTANCE_STATE)
        add_one(noWritersSampleCount);
}

void QuixSpyDataListener::print_user_data(const DDS_SampleInfo& info, const void* sample) {
    report(info, sample);
    put_lines();
    output_.flush();
}

/// A line stands on a terminal as soon as it is complete. Elsewhere the lines of samples that were taken
/// together go out together.
void QuixSpyDataListener::report(const DDS_SampleInfo& info, const void* sample) {
    const QuixSpyEndpointInfo& writer = writer_of(info);
    count(info);
    std::optional<QuixAgentOutput::Together> together;
    if (settings_.printSample != PRINT_SAMPLE_NONE) // contents may be put in pieces
        together.emplace(output_);
    QUIXSpy_formatSampleLine(lines_, settings_.fields, topicField_, info, writer);
    print_sample(info, sample);
    const bool is_begun = lines_.empty(); // large contents went out already
    lines_ += '\n';
    if (output_.is_terminal() || is_begun || lines_.size() > kMostTogether)
        put_lines();
    together.reset(); // others need not wait for the terminal
    if (output_.is_terminal())
        output_.flush();
}

void QuixSpyDataListener::put_lines() {
    if (lines_.empty())
        return;
    output_.put(lines_);
    lines_.clear();
    if (lines_.capacity() > kMostKept)
        lines_.shrink_to_fit();
}

void QuixSpyDataListener::print_sample(const DDS_SampleInfo& info, const void* sample) {
    if (!info.valid_data || sample == nullptr || settings_.printSample == PRINT_SAMPLE_NONE)
        return;
    if (settings_.useDynamicData)
        print_sample(*static_cast<const DDS_DynamicData*>(sample), 0);
    else if (typeCode_ != nullptr && settings_.printSample == PRINT_SAMPLE_PLAIN)
        print_sample(*static_cast<const DynamicType*>(sample), typeCode_, 0);
    else if (typeCode_ != nullptr)
        fail_compact(DDS_RETCODE_UNSUPPORTED); // of this form there are only lines
}

bool QuixSpyDataListener::print_sample(const DynamicType& sample, const DDS_TypeCode* typeCode,
                                       int32_t indent) {
    lines_ += '\n';
    return QuixSpyRawPrinter(lines_, &output_).print_sample(sample, typeCode, indent);
}

bool QuixSpyDataListener::print_sample(const DDS_DynamicData& sample, int32_t indent) {
    if (sample.is_too_large())
        return true; // the middleware told it
    switch (settings_.printSample) {
        case PRINT_SAMPLE_PLAIN:
            return print_plain(sample, indent);
        case PRINT_SAMPLE_COMPACT:
            return print_compact(sample);
        default:
            return true;
    }
}

bool QuixSpyDataListener::print_plain(const DDS_DynamicData& sample, int32_t indent) {
    lines_ += '\n';
    put_lines(); // the middleware writes to the stream itself
    const DDS_ReturnCode_t result = sample.print(output_.stream(), indent);
    return result == DDS_RETCODE_OK || output_.fail("print failed with retCode %d\n", result);
}

bool QuixSpyDataListener::print_compact(const DDS_DynamicData& sample) {
    DDS_PrintFormatProperty format = DDS_PRINT_FORMAT_PROPERTY_DEFAULT;
    format.kind = DDS_JSON_PRINT_FORMAT;
    format.pretty_print = false;
    DDS_UnsignedLong length = 0;
    DDS_ReturnCode_t result = sample.to_string(nullptr, length, format);
    if (result != DDS_RETCODE_OK)
        return fail_compact(result);
    constexpr std::string_view kLabel = " sample=";
    if (length > kMostTogether) { // needs no memory here
        lines_ += kLabel;
        put_lines();
        result = sample.print(output_.stream(), format);
        return result == DDS_RETCODE_OK || fail_compact(result);
    }
    const size_t end = lines_.size();
    try {
        lines_.resize(end + kLabel.size() + length);
    } catch (const std::bad_alloc&) {
        put_lines(); // what is said stands behind the fields of the line
        return output_.fail("Error allocating string for printing sample.\n");
    }
    kLabel.copy(lines_.data() + end, kLabel.size());
    result = sample.to_string(lines_.data() + end + kLabel.size(), length, format);
    lines_.resize(result == DDS_RETCODE_OK ? lines_.size() - 1 : end); // without the terminator
    return result == DDS_RETCODE_OK || fail_compact(result);
}

/// What the compact form cannot show is told behind the fields of the line.
bool QuixSpyDataListener::fail_compact(DDS_ReturnCode_t result) {
    put_lines();
    return output_.fail("to_string failed with retCode %d\n", result);
}

void QuixSpyDataListener::on_requested_deadline_missed(DDSDataReader* reader,
                                                       const DDS_RequestedDeadlineMissedStatus& status) {
    if (const char* const topic = topic_of(reader))
        output_.fail("ferret: Deadline number %6.6d missed for Topic \"%s\".\n", status.total_count,
                     QUIXSpy_text(topic).c_str());
    else
        output_.fail("ferret: Deadline number %6.6d missed.\n", status.total_count);
}

void QuixSpyDataListener::on_requested_incompatible_qos(DDSDataReader* reader,
                                                        const DDS_RequestedIncompatibleQosStatus& status) {
    if (status.policies.length() == 1) {
        // Other single policies are not printed here; the logger names them.
        if (status.policies[0].policy_id != DDS_DEADLINE_QOS_POLICY_ID)
            return;
        const char* const topic = topic_of(reader);
        const std::string name = topic != nullptr ? " \"" + QUIXSpy_text(topic) + "\"" : "";
        output_.fail(
            "ferret: Matched Topic%s has incompatible deadline QoS.\n"
            "ferret: ... will not receive updates from it\n",
            name.c_str());
    } else {
        std::string policies;
        for (DDS_Long i = 0; i < status.policies.length(); ++i)
            policies += std::to_string(status.policies[i].policy_id) + ", ";
        output_.fail("ferret: Matched topic has incompatible QoS policies: [ %s];\n", policies.c_str());
    }
}

void QuixSpyDataListener::on_subscription_matched(DDSDataReader*,
                                                  const DDS_SubscriptionMatchedStatus& status) {
    output_.progress("ferret: Matched DataWriters change (%d). Matched DataWriter tally is: %d\n",
                     status.current_count_change, status.current_count);
}
