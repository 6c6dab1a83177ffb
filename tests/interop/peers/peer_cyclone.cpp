// A test peer on Cyclone DDS. Domain-wide settings (lease, tag, peers, address family) come from
// CYCLONEDDS_URI.

#include <dds/dds.h>
#include <dds/version.h>

#include <algorithm>

#include "command_loop.h"
#include "cyclone_types.h"

namespace {

using peers::Command;
using peers::CycloneType;
using peers::EndpointOptions;
using peers::GuidBytes;
using peers::Sample;

struct Endpoint {
    dds_entity_t group = 0; // its own publisher or subscriber, since partitions belong to those
    dds_entity_t entity = 0;
    bool writer = false;
    const CycloneType* type = nullptr;
};

// The type under another name, without type information, which would tell the first one.
dds_topic_descriptor_t named(const dds_topic_descriptor_t& type, const char* name) {
    return {type.m_size,  type.m_align, type.m_flagset & ~static_cast<uint32_t>(DDS_TOPIC_XTYPES_METADATA),
            type.m_nkeys, name,         type.m_keys,
            type.m_nops,  type.m_ops,   type.m_meta,
            {nullptr, 0}, {nullptr, 0}, type.restrict_data_representation};
}

class CyclonePeer final : public peers::Peer {
  public:
    std::string release() const override { return "Cyclone DDS " DDS_VERSION; }

    std::string create_participant(const Command& command, GuidBytes& guid) override {
        if (participant_ > 0) {
            return "there is a participant already";
        }
        dds_qos_t* qos = dds_create_qos();
        if (command.has("name")) {
            dds_qset_entity_name(qos, command.text("name").c_str());
        }
        if (command.has("user_data")) {
            const std::string data = command.text("user_data");
            dds_qset_userdata(qos, data.data(), data.size());
        }
        participant_ =
            dds_create_participant(static_cast<dds_domainid_t>(command.number("domain", 0)), qos, nullptr);
        dds_delete_qos(qos);
        if (participant_ < 0) {
            return dds_strretcode(participant_);
        }
        participants_ = dds_create_reader(participant_, DDS_BUILTIN_TOPIC_DCPSPARTICIPANT, nullptr, nullptr);
        return guid_of(participant_, guid);
    }

    std::string create_endpoint(const std::string& name, bool writer, const EndpointOptions& options,
                                GuidBytes& guid) override {
        const CycloneType* type = peers::cyclone_type(options.type);
        if (type == nullptr) {
            return "no type called " + options.type;
        }
        if (participant_ <= 0) {
            return "no participant yet";
        }
        if (endpoints_.count(name) != 0) {
            return name + " exists already";
        }
        const dds_topic_descriptor_t renamed = named(*type->descriptor, options.type_name.c_str());
        const dds_entity_t topic =
            dds_create_topic(participant_, options.type_name.empty() ? type->descriptor : &renamed,
                             options.topic.c_str(), nullptr, nullptr);
        if (topic < 0) {
            return dds_strretcode(topic);
        }
        Endpoint endpoint;
        endpoint.writer = writer;
        endpoint.type = type;

        dds_qos_t* group_qos = dds_create_qos();
        if (options.partitions) {
            fill_partitions(group_qos, *options.partitions);
        }
        endpoint.group = writer ? dds_create_publisher(participant_, group_qos, nullptr)
                                : dds_create_subscriber(participant_, group_qos, nullptr);
        dds_delete_qos(group_qos);
        if (endpoint.group < 0) {
            return dds_strretcode(endpoint.group);
        }

        dds_qos_t* qos = endpoint_qos(writer, options);
        endpoint.entity = writer ? dds_create_writer(endpoint.group, topic, qos, nullptr)
                                 : dds_create_reader(endpoint.group, topic, qos, nullptr);
        dds_delete_qos(qos);
        // The endpoint keeps the topic alive; without this reference the topic goes when the endpoint does.
        dds_delete(topic);
        if (endpoint.entity < 0) {
            dds_delete(endpoint.group);
            return dds_strretcode(endpoint.entity);
        }
        endpoints_[name] = endpoint;
        return guid_of(endpoint.entity, guid);
    }

    std::string write(const std::string& name, const Sample& sample) override {
        return act(name, sample, dds_write);
    }

    std::string describe(const std::string& name, const Sample& sample) override {
        const auto found = endpoints_.find(name);
        std::string text;
        if (found != endpoints_.end()) {
            const CycloneType& type = *found->second.type;
            type.build(sample, [&](const void* data) {
                text = type.describe(data);
                return DDS_RETCODE_OK;
            });
        }
        return text;
    }

    std::string dispose(const std::string& name, int32_t id) override {
        return act(name, Sample{id, 0, 0}, dds_dispose);
    }

    std::string write_dispose(const std::string& name, const Sample& sample) override {
        return act(name, sample, dds_writedispose);
    }

    std::string unregister(const std::string& name, int32_t id) override {
        return act(name, Sample{id, 0, 0}, dds_unregister_instance);
    }

    std::string set_partitions(const std::string& name, const std::vector<std::string>& partitions) override {
        return set_qos(name, true, [&](dds_qos_t* qos) { fill_partitions(qos, partitions); });
    }

    std::string set_user_data(const std::string& name, const std::vector<uint8_t>& data) override {
        return set_qos(name, false,
                       [&](dds_qos_t* qos) { dds_qset_userdata(qos, data.data(), data.size()); });
    }

    std::string remove(const std::string& name) override {
        const auto found = endpoints_.find(name);
        if (found == endpoints_.end()) {
            return "no endpoint called " + name;
        }
        const dds_return_t result = dds_delete(found->second.group);
        endpoints_.erase(found);
        return result < 0 ? dds_strretcode(result) : "";
    }

    int matches(const std::string& name) override {
        const auto found = endpoints_.find(name);
        if (found == endpoints_.end()) {
            return -1;
        }
        return found->second.writer ? dds_get_matched_subscriptions(found->second.entity, nullptr, 0)
                                    : dds_get_matched_publications(found->second.entity, nullptr, 0);
    }

    int acknowledged(const std::string& name) override {
        const auto found = endpoints_.find(name);
        if (found == endpoints_.end() || !found->second.writer) {
            return -1;
        }
        return dds_wait_for_acks(found->second.entity, DDS_MSECS(100)) == DDS_RETCODE_OK ? 1 : 0;
    }

    int take(const std::string& name) override {
        const auto found = endpoints_.find(name);
        if (found == endpoints_.end() || found->second.writer) {
            return -1;
        }
        constexpr int kMost = 64;
        void* samples[kMost] = {};
        dds_sample_info_t infos[kMost];
        const dds_return_t taken = dds_take(found->second.entity, samples, infos, kMost, kMost);
        if (taken <= 0) {
            return 0;
        }
        const auto valid = std::count_if(infos, infos + taken,
                                         [](const dds_sample_info_t& info) { return info.valid_data; });
        dds_return_loan(found->second.entity, samples, taken);
        return static_cast<int>(valid);
    }

    std::vector<peers::Other> others() override {
        constexpr int kMost = 200;
        void* samples[kMost] = {};
        dds_sample_info_t infos[kMost];
        GuidBytes own{};
        guid_of(participant_, own);
        const dds_return_t count = dds_read(participants_, samples, infos, kMost, kMost);
        std::vector<peers::Other> result;
        for (dds_return_t i = 0; i < count; ++i) {
            const auto& data = *static_cast<const dds_builtintopic_participant_t*>(samples[i]);
            peers::Other other;
            std::copy(std::begin(data.key.v), std::end(data.key.v), other.guid.begin());
            if (!infos[i].valid_data || infos[i].instance_state != DDS_IST_ALIVE || other.guid == own) {
                continue;
            }
            char* name = nullptr;
            if (dds_qget_entity_name(data.qos, &name) && name != nullptr) {
                other.name = name;
                dds_free(name);
            }
            result.push_back(other);
        }
        if (count > 0) {
            dds_return_loan(participants_, samples, count);
        }
        return result;
    }

    void close() override {
        if (participant_ > 0) {
            dds_delete(participant_);
        }
    }

  private:
    static std::string guid_of(dds_entity_t entity, GuidBytes& guid) {
        dds_guid_t value;
        const dds_return_t result = dds_get_guid(entity, &value);
        if (result < 0) {
            return dds_strretcode(result);
        }
        std::copy(std::begin(value.v), std::end(value.v), guid.begin());
        return "";
    }

    static void fill_partitions(dds_qos_t* qos, const std::vector<std::string>& partitions) {
        std::vector<const char*> names;
        for (const std::string& name : partitions) {
            names.push_back(name.c_str());
        }
        dds_qset_partition(qos, static_cast<uint32_t>(names.size()), names.data());
    }

    static dds_qos_t* endpoint_qos(bool writer, const EndpointOptions& options) {
        dds_qos_t* qos = dds_create_qos();
        dds_qset_reliability(qos, options.reliable ? DDS_RELIABILITY_RELIABLE : DDS_RELIABILITY_BEST_EFFORT,
                             DDS_SECS(10));
        dds_qset_durability(
            qos, options.transient_local ? DDS_DURABILITY_TRANSIENT_LOCAL : DDS_DURABILITY_VOLATILE);
        dds_qset_history(qos, options.depth > 0 ? DDS_HISTORY_KEEP_LAST : DDS_HISTORY_KEEP_ALL,
                         options.depth);
        dds_qset_ownership(qos, options.exclusive ? DDS_OWNERSHIP_EXCLUSIVE : DDS_OWNERSHIP_SHARED);
        if (writer) {
            dds_qset_ownership_strength(qos, options.strength);
            // A late joiner gets what the history holds, so the durable copy follows it.
            dds_qset_durability_service(qos, 0,
                                        options.depth > 0 ? DDS_HISTORY_KEEP_LAST : DDS_HISTORY_KEEP_ALL,
                                        options.depth > 0 ? options.depth : 1, -1, -1, -1);
            dds_qset_writer_data_lifecycle(qos, false);
        }
        if (options.representation > 0) {
            const dds_data_representation_id_t representation =
                options.representation == 1 ? DDS_DATA_REPRESENTATION_XCDR1 : DDS_DATA_REPRESENTATION_XCDR2;
            dds_qset_data_representation(qos, 1, &representation);
        }
        if (options.deadline > 0) {
            dds_qset_deadline(qos, static_cast<dds_duration_t>(options.deadline * 1e9));
        }
        if (!options.entity_name.empty()) {
            dds_qset_entity_name(qos, options.entity_name.c_str());
        }
        if (!options.user_data.empty()) {
            dds_qset_userdata(qos, options.user_data.data(), options.user_data.size());
        }
        return qos;
    }

    std::string act(const std::string& name, const Sample& sample,
                    dds_return_t (*operation)(dds_entity_t, const void*)) {
        const auto found = endpoints_.find(name);
        if (found == endpoints_.end() || !found->second.writer) {
            return "no writer called " + name;
        }
        const dds_entity_t writer = found->second.entity;
        const dds_return_t result =
            found->second.type->build(sample, [&](const void* data) { return operation(writer, data); });
        return result < 0 ? dds_strretcode(result) : "";
    }

    template <typename Change>
    std::string set_qos(const std::string& name, bool of_group, Change change) {
        const auto found = endpoints_.find(name);
        if (found == endpoints_.end()) {
            return "no endpoint called " + name;
        }
        dds_qos_t* qos = dds_create_qos();
        change(qos);
        const dds_return_t result = dds_set_qos(of_group ? found->second.group : found->second.entity, qos);
        dds_delete_qos(qos);
        return result < 0 ? dds_strretcode(result) : "";
    }

    dds_entity_t participant_ = 0;
    dds_entity_t participants_ = 0; // the builtin reader
    std::map<std::string, Endpoint> endpoints_;
};

} // namespace

int main(int argc, char** argv) {
    CyclonePeer peer;
    return peers::run_commands(peer, argc, argv);
}
