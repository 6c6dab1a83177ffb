#include "endpoints_peer.h"

#include <cstdlib>

#include "discovery/conversions.h"
#include "meridian/domain_participant_factory.h"

namespace meridian::dcps::test {

namespace {

DDS_Duration_t milliseconds_of(int value) {
    return {value / 1000, static_cast<DDS_UnsignedLong>(value % 1000) * 1000000};
}

/// What readers and writers have in common; false when the word is another one.
template <typename Qos>
bool apply(Qos& qos, const std::string& word, int value) {
    if (word == "reliable" || word == "best_effort")
        qos.reliability.kind =
            word == "reliable" ? DDS_RELIABLE_RELIABILITY_QOS : DDS_BEST_EFFORT_RELIABILITY_QOS;
    else if (word == "transient_local")
        qos.durability.kind = DDS_TRANSIENT_LOCAL_DURABILITY_QOS;
    else if (word == "keep_all")
        qos.history.kind = DDS_KEEP_ALL_HISTORY_QOS;
    else if (word == "depth")
        qos.history.depth = value;
    else if (word == "max_samples")
        qos.resource_limits.max_samples = value;
    else if (word == "max_instances")
        qos.resource_limits.max_instances = value;
    else if (word == "max_per_instance")
        qos.resource_limits.max_samples_per_instance = value;
    else if (word == "blocking")
        qos.reliability.max_blocking_time = milliseconds_of(value);
    else if (word == "deadline")
        qos.deadline.period = milliseconds_of(value);
    else if (word == "exclusive")
        qos.ownership.kind = DDS_EXCLUSIVE_OWNERSHIP_QOS;
    else if (word == "manual_by_topic")
        qos.liveliness.kind = DDS_MANUAL_BY_TOPIC_LIVELINESS_QOS;
    else if (word == "lease")
        qos.liveliness.lease_duration = milliseconds_of(value);
    else if (word == "xcdr2")
        qos.representation.value.append(DDS_XCDR2_DATA_REPRESENTATION);
    else
        return false;
    return true;
}

std::string text_of(const TestSample* sample, const DDS_SampleInfo& info) {
    if (info.valid_data)
        return std::to_string(sample->id) + " " + sample->text;
    uint32_t id = 0;
    for (size_t i = 0; i < 4; ++i)
        id = id << 8 | info.instance_handle.keyHash[i];
    return std::to_string(id) +
           (info.instance_state == DDS_NOT_ALIVE_DISPOSED_INSTANCE_STATE ? " disposed" : " no_writers");
}

} // namespace

EndpointWords::EndpointWords(const std::string& words) {
    std::istringstream stream(words);
    for (std::string item; stream >> item;) {
        const std::string word = item.substr(0, item.find('='));
        const std::string text = word.size() < item.size() ? item.substr(word.size() + 1) : "";
        const int value = std::atoi(text.c_str());
        const bool common = apply(reader, word, value) && apply(writer, word, value);
        if (word == "partition")
            DDS_StringSeq_append(partition.name, text.c_str());
        else if (word == "separation")
            reader.time_based_filter.minimum_separation = milliseconds_of(value);
        else if (word == "strength")
            writer.ownership_strength.value = value;
        else if (word == "keep_unregistered")
            writer.writer_data_lifecycle.autodispose_unregistered_instances = false;
        else if (!common)
            std::abort();
    }
}

DDSTopic* topic_of(DDSDomainParticipant& participant, const std::string& name, const std::string& type) {
    if (DDSTopicDescription* known = participant.lookup_topicdescription(name.c_str()))
        return DDSTopic::narrow(known);
    return participant.create_topic(name.c_str(), type.c_str(), {}, nullptr, DDS_STATUS_MASK_NONE);
}

TestWriter* make_writer(DDSDomainParticipant& participant, const std::string& topic, const std::string& type,
                        const std::string& words) {
    const EndpointWords wanted(words);
    DDS_PublisherQos qos;
    qos.partition = wanted.partition;
    DDSPublisher* publisher = participant.create_publisher(qos, nullptr, DDS_STATUS_MASK_NONE);
    return dynamic_cast<TestWriter*>(publisher->create_datawriter(
        topic_of(participant, topic, type), wanted.writer, nullptr, DDS_STATUS_MASK_NONE));
}

TestReader* make_reader(DDSDomainParticipant& participant, const std::string& topic, const std::string& type,
                        const std::string& words, DDSDataReaderListener* listener, DDS_StatusMask mask) {
    const EndpointWords wanted(words);
    DDS_SubscriberQos qos;
    qos.partition = wanted.partition;
    DDSSubscriber* subscriber = participant.create_subscriber(qos, nullptr, DDS_STATUS_MASK_NONE);
    return dynamic_cast<TestReader*>(
        subscriber->create_datareader(topic_of(participant, topic, type), wanted.reader, listener, mask));
}

std::string take_all(TestReader& reader) {
    std::string text;
    TestSequence samples;
    DDS_SampleInfoSeq infos;
    while (reader.take(samples, infos, DDS_LENGTH_UNLIMITED, DDS_ANY_SAMPLE_STATE, DDS_ANY_VIEW_STATE,
                       DDS_ANY_INSTANCE_STATE) == DDS_RETCODE_OK) {
        for (DDS_Long i = 0; i < samples.length(); ++i)
            text +=
                (text.empty() ? "" : ", ") + text_of(infos[i].valid_data ? &samples[i] : nullptr, infos[i]);
        reader.return_loan(samples, infos);
    }
    return text;
}

std::unique_ptr<PeerCommands> EndpointsPeer::make() {
    auto peer = std::make_unique<EndpointsPeer>();
    DDSDomainParticipantFactory* factory = DDSDomainParticipantFactory::get_instance();
    peer->participant_ = factory->create_participant(0, {}, nullptr, DDS_STATUS_MASK_NONE);
    if (peer->participant_ == nullptr || peer->participant_->enable() != DDS_RETCODE_OK ||
        !register_test_types(*peer->participant_))
        return nullptr;
    return peer;
}

EndpointsPeer::~EndpointsPeer() {
    DDSDomainParticipantFactory::finalize_instance();
}

std::string EndpointsPeer::write(const std::string& verb, TestWriter& writer, std::istringstream& words) {
    TestSample sample;
    words >> sample.id >> sample.text;
    if (verb == "write")
        return std::to_string(writer.write(sample, DDS_HANDLE_NIL));
    if (verb == "dispose")
        return std::to_string(writer.dispose(sample, DDS_HANDLE_NIL));
    if (verb == "unregister")
        return std::to_string(writer.unregister_instance(sample, DDS_HANDLE_NIL));
    DDS_ReturnCode_t result = DDS_RETCODE_OK;
    const auto end = static_cast<uint32_t>(std::atoi(sample.text.c_str()));
    for (; sample.id <= end && result == DDS_RETCODE_OK; ++sample.id) {
        sample.text = std::to_string(sample.id);
        result = writer.write(sample, DDS_HANDLE_NIL);
    }
    return std::to_string(result);
}

std::string EndpointsPeer::obey(const std::string& command) {
    std::istringstream words(command);
    std::string verb;
    std::string name;
    words >> verb >> name;
    if (verb == "writer" || verb == "reader") {
        std::string topic;
        std::string type;
        std::string qos;
        words >> topic >> type;
        std::getline(words, qos);
        if (verb == "writer")
            writers_[name] = make_writer(*participant_, topic, type, qos);
        else
            readers_[name] = make_reader(*participant_, topic, type, qos);
        return (verb == "writer" ? writers_[name] != nullptr : readers_[name] != nullptr) ? "ok" : "failed";
    }
    const auto writer = writers_.find(name);
    const auto reader = readers_.find(name);
    if (writer != writers_.end()) {
        if (verb == "matched") {
            DDS_InstanceHandleSeq handles;
            writer->second->get_matched_subscriptions(handles);
            return std::to_string(handles.length());
        }
        if (verb == "acknowledged")
            return std::to_string(writer->second->wait_for_acknowledgments({20, 0}));
        if (verb == "assert")
            return std::to_string(writer->second->assert_liveliness());
        if (verb == "guid")
            return rtps::to_string(*discovery::to_guid(writer->second->get_instance_handle()));
        if (verb == "delete") {
            const DDS_ReturnCode_t result =
                writer->second->get_publisher()->delete_datawriter(writer->second);
            writers_.erase(writer);
            return std::to_string(result);
        }
        return write(verb, *writer->second, words);
    }
    if (reader != readers_.end() && verb == "take")
        return take_all(*reader->second);
    if (reader != readers_.end() && verb == "matched") {
        DDS_SubscriptionMatchedStatus matched;
        reader->second->get_subscription_matched_status(matched);
        return std::to_string(matched.current_count);
    }
    return "?";
}

} // namespace meridian::dcps::test
