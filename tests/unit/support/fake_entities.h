#pragma once

// Entities of the middleware whose answers a test sets.

#include <map>
#include <memory>
#include <string>
#include <vector>

#include "meridian/builtin_topics.h"
#include "meridian/domain_participant.h"
#include "meridian/domain_participant_factory.h"
#include "meridian/subscriber.h"
#include "meridian/type_plugin.h"
#include "meridian/type_support.h"

/// The part of every entity that nothing here depends on.
template <typename Base>
class FakeEntity : public Base {
  public:
    DDS_ReturnCode_t enable() override {
        enabled = enable_result == DDS_RETCODE_OK;
        return enable_result;
    }
    DDSStatusCondition* get_statuscondition() override { return nullptr; }
    DDS_StatusMask get_status_changes() override { return 0; }
    DDS_InstanceHandle_t get_instance_handle() override { return DDS_HANDLE_NIL; }

    DDS_ReturnCode_t enable_result = DDS_RETCODE_OK;
    bool enabled = false;
};

/// A reader that was asked for: with what, and what was set on it.
struct RequestedReader {
    std::string topic;
    DDS_DataReaderQos qos;
    DDSDataReaderListener* listener;
    DDS_StatusMask mask;
};

/// Stands for a reader that is not used.
class FakeReader : public FakeEntity<DDSDataReader> {
  public:
    DDS_ReturnCode_t get_qos(DDS_DataReaderQos& out) override {
        out = qos;
        return DDS_RETCODE_OK;
    }
    DDS_ReturnCode_t set_qos(const DDS_DataReaderQos&) override { return DDS_RETCODE_OK; }
    DDS_ReturnCode_t read_status(const DDSReaderStatus& status) override {
        std::get<DDS_SubscriptionMatchedStatus*>(status)->current_count = matched;
        return DDS_RETCODE_OK;
    }
    DDS_Long matched = 1;
    char* describe_incompatibility(const DDS_EndpointPolicies& writer, const DDS_GroupPolicies&) override {
        const bool fits =
            writer.liveliness.kind >= qos.liveliness.kind && !(qos.deadline.period < writer.deadline.period);
        return DDS_String_dup(fits ? "" : "liveliness: too little");
    }
    DDSTopicDescription* get_topicdescription() override { return topic; }
    DDSSubscriber* get_subscriber() override { return nullptr; }
    DDS_ReturnCode_t get_matched_publication_participant_data(DDS_ParticipantBuiltinTopicData&,
                                                              const DDS_InstanceHandle_t&) override {
        return DDS_RETCODE_BAD_PARAMETER;
    }

    DDSTopicDescription* topic = nullptr;
    DDS_DataReaderQos qos;
};

class FakeTopic : public FakeEntity<DDSTopic> {
  public:
    FakeTopic(const char* topic_name, const char* type) : name(topic_name), type_name(type) {}
    ~FakeTopic() override = default;
    const char* get_name() override { return name.c_str(); }
    const char* get_type_name() override { return has_type_name ? type_name.c_str() : nullptr; }
    DDSDomainParticipant* get_participant() override { return nullptr; }
    DDS_ReturnCode_t get_qos(DDS_TopicQos&) override { return DDS_RETCODE_OK; }

    std::string name;
    std::string type_name;
    bool has_type_name = true;
};

class FakeSubscriber : public FakeEntity<DDSSubscriber> {
  public:
    DDS_ReturnCode_t get_qos(DDS_SubscriberQos&) override { return DDS_RETCODE_OK; }
    DDS_ReturnCode_t set_qos(const DDS_SubscriberQos&) override { return DDS_RETCODE_OK; }
    DDSDomainParticipant* get_participant() override { return participant; }
    DDSDataReader* create_datareader(DDSTopicDescription* topic, const DDS_DataReaderQos& qos,
                                     DDSDataReaderListener* listener, DDS_StatusMask mask) override {
        requested.push_back({topic->get_name(), qos, listener, mask});
        return created_reader;
    }
    DDS_ReturnCode_t delete_datareader(DDSDataReader*) override { return DDS_RETCODE_OK; }
    DDSDataReader* lookup_datareader(const char* topic_name) override {
        looked_up.emplace_back(topic_name);
        const auto found = readers.find(topic_name);
        return found != readers.end() ? found->second : nullptr;
    }
    DDS_ReturnCode_t get_default_datareader_qos(DDS_DataReaderQos&) override { return DDS_RETCODE_OK; }
    DDS_ReturnCode_t get_default_datareader_qos_w_topic_name(DDS_DataReaderQos& qos,
                                                             const char* topic_name) override {
        asked_default_of = topic_name;
        qos = default_reader_qos;
        return DDS_RETCODE_OK;
    }

    DDS_DataReaderQos default_reader_qos;
    std::string asked_default_of;
    std::vector<RequestedReader> requested;
    DDSDataReader* created_reader = nullptr;
    DDSDomainParticipant* participant = nullptr;
    std::map<std::string, DDSDataReader*> readers;
    std::vector<std::string> looked_up;
};

/// A builtin reader that hands out the samples that a test queued, on loan.
template <typename Data>
class FakeBuiltinReader : public FakeEntity<DDSBuiltinTopicDataReader<Data>> {
  public:
    DDS_ReturnCode_t get_qos(DDS_DataReaderQos&) override { return DDS_RETCODE_OK; }
    DDS_ReturnCode_t set_qos(const DDS_DataReaderQos&) override { return DDS_RETCODE_OK; }
    DDSTopicDescription* get_topicdescription() override { return nullptr; }
    DDSSubscriber* get_subscriber() override { return subscriber; }

    DDS_ReturnCode_t take(DDS_Sequence<Data>& data, DDS_SampleInfoSeq& infos, DDS_Long max_samples,
                          DDS_SampleStateMask sample_states, DDS_ViewStateMask view_states,
                          DDS_InstanceStateMask instance_states) override {
        ++takes;
        takes_everything = max_samples == DDS_LENGTH_UNLIMITED && sample_states == DDS_ANY_SAMPLE_STATE &&
                           view_states == DDS_ANY_VIEW_STATE && instance_states == DDS_ANY_INSTANCE_STATE;
        if (take_result != DDS_RETCODE_OK)
            return take_result;
        if (samples.empty())
            return DDS_RETCODE_NO_DATA;
        data_pointers.clear();
        info_pointers.clear();
        for (auto& sample : samples) {
            data_pointers.push_back(&sample.first);
            info_pointers.push_back(&sample.second);
        }
        const auto count = static_cast<DDS_Long>(samples.size());
        data.loan_discontiguous(data_pointers.data(), count);
        infos.loan_discontiguous(info_pointers.data(), count);
        ++loans;
        return DDS_RETCODE_OK;
    }
    DDS_ReturnCode_t return_loan(DDS_Sequence<Data>& data, DDS_SampleInfoSeq& infos) override {
        data.unloan();
        infos.unloan();
        samples.clear();
        --loans;
        return return_loan_result;
    }
    /// The key is the handle, read as four words.
    DDS_ReturnCode_t get_key_value(Data& holder, const DDS_InstanceHandle_t& handle) override {
        if (!handle.isValid)
            return DDS_RETCODE_BAD_PARAMETER;
        for (size_t word = 0; word < 4; ++word) {
            holder.key.value[word] = 0;
            for (size_t byte = 0; byte < 4; ++byte)
                holder.key.value[word] = holder.key.value[word] << 8 | handle.keyHash[4 * word + byte];
        }
        return DDS_RETCODE_OK;
    }
    DDS_ReturnCode_t get_matched_publication_participant_data(DDS_ParticipantBuiltinTopicData& data,
                                                              const DDS_InstanceHandle_t& handle) override {
        if (handle == handle_without_participant)
            return DDS_RETCODE_BAD_PARAMETER;
        data = participant_data;
        return DDS_RETCODE_OK;
    }

    std::vector<std::pair<Data, DDS_SampleInfo>> samples;
    DDSSubscriber* subscriber = nullptr;
    DDS_ParticipantBuiltinTopicData participant_data;
    DDS_InstanceHandle_t handle_without_participant = {{0xff}, 16, true};
    DDS_ReturnCode_t take_result = DDS_RETCODE_OK;
    DDS_ReturnCode_t return_loan_result = DDS_RETCODE_OK;
    int takes = 0;
    int loans = 0;
    bool takes_everything = false;

  private:
    std::vector<Data*> data_pointers;
    std::vector<DDS_SampleInfo*> info_pointers;
};

/// Every operation succeeds unless `results` names another return code for it; what was called stands in
/// `calls`.
class FakeParticipant : public FakeEntity<DDSDomainParticipant> {
  public:
    DDS_ReturnCode_t result_of(const std::string& operation) {
        calls.push_back(operation);
        const auto found = results.find(operation);
        return found != results.end() ? found->second : DDS_RETCODE_OK;
    }

    DDS_ReturnCode_t enable() override { return result_of("enable"); }
    DDS_InstanceHandle_t get_instance_handle() override { return handle; }
    DDS_ReturnCode_t get_qos(DDS_DomainParticipantQos&) override { return DDS_RETCODE_OK; }
    DDS_ReturnCode_t set_qos(const DDS_DomainParticipantQos&) override { return DDS_RETCODE_OK; }
    DDSSubscriber* get_builtin_subscriber() override { return builtin_subscriber; }
    DDSSubscriber* create_subscriber(const DDS_SubscriberQos& qos, DDSSubscriberListener*,
                                     DDS_StatusMask) override {
        calls.emplace_back("create_subscriber");
        subscriber_qos = qos;
        return created_subscriber;
    }
    DDSPublisher* create_publisher(const DDS_PublisherQos&, DDSPublisherListener*, DDS_StatusMask) override {
        return nullptr;
    }
    DDS_ReturnCode_t delete_publisher(DDSPublisher*) override { return DDS_RETCODE_OK; }
    DDS_ReturnCode_t get_default_topic_qos(DDS_TopicQos&) override { return DDS_RETCODE_OK; }
    DDS_ReturnCode_t get_default_subscriber_qos(DDS_SubscriberQos& qos) override {
        qos = default_subscriber_qos;
        return result_of("get_default_subscriber_qos");
    }
    DDS_ReturnCode_t get_default_datareader_qos(DDS_DataReaderQos&) override { return DDS_RETCODE_OK; }
    DDS_ReturnCode_t set_default_topic_qos_with_profile(const char* library, const char* profile) override {
        profiles.push_back(std::string(library) + "::" + profile);
        return result_of("topic");
    }
    DDS_ReturnCode_t set_default_subscriber_qos_with_profile(const char* library,
                                                             const char* profile) override {
        profiles.push_back(std::string(library) + "::" + profile);
        return result_of("subscriber");
    }
    DDS_ReturnCode_t set_default_datareader_qos_with_profile(const char* library,
                                                             const char* profile) override {
        profiles.push_back(std::string(library) + "::" + profile);
        return result_of("datareader");
    }
    /// Owns the type support only when it succeeds, as the real one does.
    DDS_ReturnCode_t register_type(const char* type_name, const PRESTypePlugin* plugin,
                                   DDSTypeSupport* type_support) override {
        const DDS_ReturnCode_t result = result_of(std::string("register_type ") + type_name);
        if (result == DDS_RETCODE_OK) {
            supports.emplace_back(type_support);
            registered.emplace(type_name, plugin->getKeyKind());
        }
        return result;
    }
    DDS_ReturnCode_t unregister_type(const char*) override { return result_of("unregister_type"); }
    DDS_Boolean is_type_registered(const char* type_name) override {
        return registered.count(type_name) != 0;
    }
    const DDS_TypeCode* get_typecode(const char* type_name) override {
        const auto found = type_codes.find(type_name);
        return found != type_codes.end() ? found->second : nullptr;
    }
    DDS_ReturnCode_t lock() override { return result_of("lock"); }
    DDS_ReturnCode_t unlock() override { return result_of("unlock"); }
    DDSTopicDescription* lookup_topicdescription(const char* topic_name) override {
        const auto found = topics.find(topic_name);
        return found != topics.end() ? found->second.get() : nullptr;
    }
    DDSTopic* create_topic(const char* topic_name, const char* type_name, const DDS_TopicQos&,
                           DDSTopicListener*, DDS_StatusMask) override {
        if (result_of(std::string("create_topic ") + topic_name) != DDS_RETCODE_OK)
            return nullptr;
        auto& topic = topics[topic_name];
        topic = std::make_unique<FakeTopic>(topic_name, type_name);
        return topic.get();
    }
    DDS_ReturnCode_t delete_topic(DDSTopic*) override { return DDS_RETCODE_OK; }
    DDS_ReturnCode_t ignore_participant(const DDS_InstanceHandle_t& ignored_handle) override {
        ignored.push_back(ignored_handle);
        return DDS_RETCODE_OK;
    }
    DDS_ReturnCode_t get_discovered_participant_data(DDS_ParticipantBuiltinTopicData& data,
                                                     const DDS_InstanceHandle_t& asked) override {
        asked_participant = asked;
        data = participant_data;
        return result_of("get_discovered_participant_data");
    }
    DDS_ReturnCode_t get_current_time(DDS_Time_t& time) override {
        time = {0, 0};
        return DDS_RETCODE_OK;
    }
    DDS_ReturnCode_t delete_contained_entities() override { return result_of("delete_contained_entities"); }

    std::map<std::string, DDS_ReturnCode_t> results;
    std::map<std::string, PRESTypePluginKeyKind> registered;
    std::map<std::string, const DDS_TypeCode*> type_codes; // registered under these names
    std::map<std::string, std::unique_ptr<FakeTopic>> topics;
    std::vector<std::unique_ptr<DDSTypeSupport>> supports;
    std::vector<std::string> calls;
    std::vector<std::string> profiles;
    std::vector<DDS_InstanceHandle_t> ignored;
    DDS_InstanceHandle_t handle{{1, 2, 3}, 16, true};
    DDS_InstanceHandle_t asked_participant{};
    DDS_ParticipantBuiltinTopicData participant_data;
    DDSSubscriber* builtin_subscriber = nullptr;
    DDSSubscriber* created_subscriber = nullptr;
    DDS_SubscriberQos default_subscriber_qos;
    DDS_SubscriberQos subscriber_qos; // as handed to create_subscriber
};

class FakeFactory : public DDSDomainParticipantFactory {
  public:
    ~FakeFactory() override = default;

    DDS_ReturnCode_t result_of(const std::string& operation) {
        const auto found = results.find(operation);
        return found != results.end() ? found->second : DDS_RETCODE_OK;
    }

    DDS_ReturnCode_t get_qos(DDS_DomainParticipantFactoryQos&) override { return result_of("get_qos"); }
    DDS_ReturnCode_t set_qos(const DDS_DomainParticipantFactoryQos& qos) override {
        factory_qos = qos;
        return result_of("set_qos");
    }
    DDS_ReturnCode_t get_qos_profile_libraries(DDS_StringSeq& libraries) override {
        for (const auto& library : profiles)
            DDS_StringSeq_append(libraries, library.first.c_str());
        return DDS_RETCODE_OK;
    }
    DDS_ReturnCode_t get_qos_profiles(DDS_StringSeq& names, const char* library) override {
        for (const std::string& name : profiles[library])
            DDS_StringSeq_append(names, name.c_str());
        return DDS_RETCODE_OK;
    }
    DDS_ReturnCode_t get_participant_qos_from_profile(DDS_DomainParticipantQos& qos, const char* library,
                                                      const char* profile) override {
        loaded = std::string(library) + "::" + profile;
        qos = profile_qos;
        return result_of("get_participant_qos_from_profile");
    }
    DDSDomainParticipant* create_participant(DDS_DomainId_t domain_id, const DDS_DomainParticipantQos& qos,
                                             DDSDomainParticipantListener*, DDS_StatusMask) override {
        domain = domain_id;
        participant_qos = qos;
        return created_participant;
    }
    DDS_ReturnCode_t delete_participant(DDSDomainParticipant* participant) override {
        deleted.push_back(participant);
        return result_of("delete_participant");
    }

    std::map<std::string, DDS_ReturnCode_t> results;
    std::map<std::string, std::vector<std::string>> profiles{{"InternalSpyLibrary", {"InternalSpyProfile"}}};
    DDS_DomainParticipantFactoryQos factory_qos; // as handed to set_qos
    DDS_DomainParticipantQos profile_qos;        // what every profile holds
    DDS_DomainParticipantQos participant_qos;    // as handed to create_participant
    DDS_DomainId_t domain = -1;
    std::string loaded;
    DDSDomainParticipant* created_participant = nullptr;
    std::vector<DDSDomainParticipant*> deleted;
};
