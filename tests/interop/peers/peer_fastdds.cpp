// A test peer on Fast DDS. Its types are written by hand and carry no type information, which is a case
// of its own.

#include <fastdds/dds/log/Log.hpp>
#include <fastdds/dds/publisher/DataWriter.hpp>
#include <fastdds/dds/publisher/Publisher.hpp>
#include <fastdds/dds/subscriber/DataReader.hpp>
#include <fastdds/dds/subscriber/SampleInfo.hpp>
#include <fastdds/dds/subscriber/Subscriber.hpp>

#include <numeric>
#include <sstream>

#include "command_loop.h"
#include "fast_release.h"
#include "json.h"

namespace {

namespace dds = peers::fast::dds;
namespace rtps = peers::fast::rtps;
using peers::Command;
using peers::EndpointOptions;
using peers::GuidBytes;
using peers::Sample;
using peers::fast::Duration;
using peers::fast::is_ok;

// { @key long id; unsigned long value; sequence<octet> payload; }, key or not.
class SampleType final : public peers::fast::HandWrittenType {
  public:
    SampleType(const char* name, bool keyed) : HandWrittenType(name, keyed, kFixedPart) {}

    bool encode(const void* data, rtps::SerializedPayload_t& payload) override {
        const Sample& sample = *static_cast<const Sample*>(data);
        if (payload.max_size < kFixedPart + sample.size) {
            return false;
        }
        const uint8_t encapsulation[4] = {0, 1, 0, 0};
        payload.encapsulation = CDR_LE;
        payload.length = kFixedPart + sample.size;
        std::memcpy(payload.data, encapsulation, 4);
        std::memcpy(payload.data + 4, &sample.id, 4);
        std::memcpy(payload.data + 8, &sample.value, 4);
        std::memcpy(payload.data + 12, &sample.size, 4);
        for (uint32_t i = 0; i < sample.size; ++i) {
            payload.data[kFixedPart + i] = static_cast<uint8_t>(i);
        }
        return true;
    }

    bool decode(const rtps::SerializedPayload_t& payload, void* data) override {
        if (payload.length < kFixedPart) {
            return false;
        }
        Sample& sample = *static_cast<Sample*>(data);
        std::memcpy(&sample.id, payload.data + 4, 4);
        std::memcpy(&sample.value, payload.data + 8, 4);
        std::memcpy(&sample.size, payload.data + 12, 4);
        return true;
    }

    uint32_t size_of(const void* data) const override {
        return kFixedPart + static_cast<const Sample*>(data)->size;
    }
    void* create() const override { return new Sample; }
    void destroy(void* data) const override { delete static_cast<Sample*>(data); }

    // A key of at most 16 bytes is its own hash: big endian, filled up with zeros.
    void key_of(const void* data, rtps::InstanceHandle_t& key) const override {
        const auto id = static_cast<uint32_t>(static_cast<const Sample*>(data)->id);
        for (unsigned i = 0; i < 16; ++i) {
            key.value[i] = i < 4 ? static_cast<uint8_t>(id >> (24 - 8 * i)) : 0;
        }
    }

  private:
    static constexpr uint32_t kFixedPart = 16;
};

struct Endpoint {
    dds::Publisher* publisher = nullptr;
    dds::DataWriter* writer = nullptr;
    dds::Subscriber* subscriber = nullptr;
    dds::DataReader* reader = nullptr;
};

class FastPeer final : public peers::Peer {
  public:
    std::string release() const override { return peers::fast::release(); }

    std::string create_participant(const Command& command, GuidBytes& guid) override {
        if (participant_ != nullptr) {
            return "there is a participant already";
        }
        dds::DomainParticipantQos qos;
        qos.name(command.text("name", ""));
        fill_discovery(qos, command);
        if (command.has("prefix")) { // another process may have it after this one
            std::istringstream(command.text("prefix")) >> qos.wire_protocol().prefix;
        }
        qos.transport().use_builtin_transports = false;
        const std::string transport = command.text("transport", "udpv4");
        if (transport == "udpv4" || transport == "both") {
            qos.transport().user_transports.push_back(
                std::make_shared<peers::fast::transport::UDPv4TransportDescriptor>());
        }
        if (transport == "udpv6" || transport == "both") {
            qos.transport().user_transports.push_back(
                std::make_shared<peers::fast::transport::UDPv6TransportDescriptor>());
        }
        if (qos.transport().user_transports.empty()) {
            return "no transport called " + transport;
        }
        const std::string data = command.text("user_data");
        qos.user_data().setValue({data.begin(), data.end()});
        for (const auto& [key, value] : command.values) {
            if (key.rfind("property:", 0) == 0 &&
                !peers::fast::announce_property(qos, key.substr(9), value)) {
                return "this release announces no properties of applications";
            }
        }
        participant_ = dds::DomainParticipantFactory::get_instance()->create_participant(
            static_cast<uint32_t>(command.number("domain", 0)), qos, &listener_, dds::StatusMask::none());
        if (participant_ == nullptr) {
            return "create_participant failed";
        }
        dds::TypeSupport(new SampleType("peers::Keyed", true)).register_type(participant_);
        dds::TypeSupport(new SampleType("peers::Unkeyed", false)).register_type(participant_);
        guid = peers::fast::bytes_of(participant_->guid());
        return "";
    }

    std::string create_endpoint(const std::string& name, bool writer, const EndpointOptions& options,
                                GuidBytes& guid) override {
        if (participant_ == nullptr) {
            return "no participant yet";
        }
        if (endpoints_.count(name) != 0) {
            return name + " exists already";
        }
        if (options.type != "keyed" && options.type != "unkeyed") {
            return "no type called " + options.type;
        }
        if (!options.entity_name.empty()) {
            return "Fast DDS announces no endpoint names";
        }
        if (options.representation == 2) {
            return "this peer serializes in XCDR1 only";
        }
        dds::Topic* topic = topic_of(options);
        if (topic == nullptr) {
            return "create_topic failed";
        }
        return writer ? create_writer(name, topic, options, guid) : create_reader(name, topic, options, guid);
    }

    std::string write(const std::string& name, const Sample& sample) override {
        return with_writer(name, [&](dds::DataWriter& writer) {
            Sample copy = sample;
            const auto result = writer.write(&copy);
            return is_ok(result) ? std::string() : "write failed: " + peers::fast::reason(result);
        });
    }

    std::string describe(const std::string&, const Sample& sample) override {
        std::vector<uint8_t> payload(sample.size);
        std::iota(payload.begin(), payload.end(), uint8_t{0});
        return peers::JsonObject()
            .add("id", sample.id)
            .add("value", sample.value)
            .add_json("payload", peers::json_array(payload.data(), payload.size()))
            .text();
    }

    std::string dispose(const std::string& name, int32_t id) override {
        return with_writer(name, [&](dds::DataWriter& writer) {
            Sample sample{id, 0, 0};
            return is_ok(writer.dispose(&sample, rtps::InstanceHandle_t())) ? "" : "dispose failed";
        });
    }

    std::string unregister(const std::string& name, int32_t id) override {
        return with_writer(name, [&](dds::DataWriter& writer) {
            Sample sample{id, 0, 0};
            return is_ok(writer.unregister_instance(&sample, rtps::InstanceHandle_t()))
                       ? ""
                       : "unregister_instance failed";
        });
    }

    std::string set_partitions(const std::string& name, const std::vector<std::string>& partitions) override {
        const auto found = endpoints_.find(name);
        if (found == endpoints_.end()) {
            return "no endpoint called " + name;
        }
        peers::fast::Result result;
        if (found->second.publisher != nullptr) {
            dds::PublisherQos qos = found->second.publisher->get_qos();
            fill_partitions(qos, partitions);
            result = found->second.publisher->set_qos(qos);
        } else {
            dds::SubscriberQos qos = found->second.subscriber->get_qos();
            fill_partitions(qos, partitions);
            result = found->second.subscriber->set_qos(qos);
        }
        return is_ok(result) ? "" : "set_qos failed";
    }

    std::string set_user_data(const std::string& name, const std::vector<uint8_t>& data) override {
        return with_writer(name, [&](dds::DataWriter& writer) {
            dds::DataWriterQos qos = writer.get_qos();
            qos.user_data().setValue(data);
            return is_ok(writer.set_qos(qos)) ? "" : "set_qos failed";
        });
    }

    std::string remove(const std::string& name) override {
        const auto found = endpoints_.find(name);
        if (found == endpoints_.end()) {
            return "no endpoint called " + name;
        }
        const Endpoint& endpoint = found->second;
        if (endpoint.publisher != nullptr) {
            endpoint.publisher->delete_datawriter(endpoint.writer);
            participant_->delete_publisher(endpoint.publisher);
        } else {
            endpoint.subscriber->delete_datareader(endpoint.reader);
            participant_->delete_subscriber(endpoint.subscriber);
        }
        endpoints_.erase(found);
        return "";
    }

    int matches(const std::string& name) override {
        const auto found = endpoints_.find(name);
        if (found == endpoints_.end()) {
            return -1;
        }
        if (found->second.writer != nullptr) {
            dds::PublicationMatchedStatus status;
            found->second.writer->get_publication_matched_status(status);
            return status.current_count;
        }
        dds::SubscriptionMatchedStatus status;
        found->second.reader->get_subscription_matched_status(status);
        return status.current_count;
    }

    int acknowledged(const std::string& name) override {
        const auto found = endpoints_.find(name);
        if (found == endpoints_.end() || found->second.writer == nullptr) {
            return -1;
        }
        const peers::fast::Result result = found->second.writer->wait_for_acknowledgments({0, 100000000});
        return is_ok(result) ? 1 : 0;
    }

    int take(const std::string& name) override {
        const auto found = endpoints_.find(name);
        if (found == endpoints_.end() || found->second.reader == nullptr) {
            return -1;
        }
        int valid = 0;
        Sample sample;
        dds::SampleInfo info;
        while (is_ok(found->second.reader->take_next_sample(&sample, &info))) {
            valid += info.valid_data ? 1 : 0;
        }
        return valid;
    }

    std::vector<peers::Other> others() override {
        std::vector<peers::Other> result;
        for (const auto& [guid, name] : listener_.names()) {
            result.push_back({guid, name});
        }
        return result;
    }

    void close() override {
        if (participant_ == nullptr) {
            return;
        }
        participant_->delete_contained_entities();
        dds::DomainParticipantFactory::get_instance()->delete_participant(participant_);
        participant_ = nullptr;
    }

  private:
    template <typename Qos>
    static void fill_partitions(Qos& qos, std::vector<std::string> partitions) {
        qos.partition().setNames(partitions); // takes no constant list
    }

    // "server=PORT" makes a discovery server on the loopback interface, "client=PORT" or
    // "client=ADDRESS:PORT" one of its clients, which speaks to no other participant until the server tells
    // it to.
    static void fill_server(dds::DomainParticipantQos& qos, const Command& command) {
        constexpr const char* kServerPrefix = "44.53.00.5f.45.50.52.4f.53.49.4d.41";
        auto& builtin = qos.wire_protocol().builtin;
        rtps::Locator_t locator;
        const std::string text = command.text(command.has("server") ? "server" : "client");
        const size_t colon = text.find(':');
        rtps::IPLocator::setIPv4(locator, colon == std::string::npos ? "127.0.0.1" : text.substr(0, colon));
        rtps::IPLocator::setPhysicalPort(
            locator,
            static_cast<uint16_t>(std::stoi(text.substr(colon == std::string::npos ? 0 : colon + 1))));
        if (command.has("server")) {
            builtin.discovery_config.discoveryProtocol = peers::fast::DiscoveryKind::SERVER;
            std::istringstream(kServerPrefix) >> qos.wire_protocol().prefix;
            builtin.metatrafficUnicastLocatorList.push_back(locator);
        } else {
            builtin.discovery_config.discoveryProtocol = peers::fast::DiscoveryKind::CLIENT;
            peers::fast::add_server(builtin.discovery_config, kServerPrefix, locator);
        }
    }

    static void fill_discovery(dds::DomainParticipantQos& qos, const Command& command) {
        auto& discovery = qos.wire_protocol().builtin.discovery_config;
        if (command.has("server") || command.has("client")) {
            fill_server(qos, command);
        }
        if (command.has("lease")) {
            const double lease = command.seconds("lease", 20);
            discovery.leaseDuration = Duration(static_cast<long double>(lease));
            discovery.leaseDuration_announcementperiod = Duration(static_cast<long double>(lease / 3));
        }
        // Addresses to announce this participant to, beside the multicast group.
        if (command.has("peers")) {
            for (const std::string& address : command.list("peers")) {
                rtps::Locator_t locator;
                if (address.find(':') != std::string::npos) {
                    locator.kind = LOCATOR_KIND_UDPv6;
                    rtps::IPLocator::setIPv6(locator, address);
                } else {
                    rtps::IPLocator::setIPv4(locator, address);
                }
                qos.wire_protocol().builtin.initialPeersList.push_back(locator);
            }
        }
    }

    dds::Topic* topic_of(const EndpointOptions& options) {
        dds::Topic*& topic = topics_[options.topic];
        if (topic == nullptr) {
            topic = participant_->create_topic(options.topic,
                                               options.type == "keyed" ? "peers::Keyed" : "peers::Unkeyed",
                                               dds::TOPIC_QOS_DEFAULT);
        }
        return topic;
    }

    // The policies that writer and reader have in common.
    template <typename Qos>
    static void fill_qos(Qos& qos, const EndpointOptions& options) {
        qos.reliability().kind =
            options.reliable ? dds::RELIABLE_RELIABILITY_QOS : dds::BEST_EFFORT_RELIABILITY_QOS;
        // A write that finds no room or turn for 100 ms, as the default is, fails on a busy machine.
        qos.reliability().max_blocking_time = Duration(10, 0);
        qos.durability().kind =
            options.transient_local ? dds::TRANSIENT_LOCAL_DURABILITY_QOS : dds::VOLATILE_DURABILITY_QOS;
        qos.history().kind = options.depth > 0 ? dds::KEEP_LAST_HISTORY_QOS : dds::KEEP_ALL_HISTORY_QOS;
        qos.history().depth = options.depth > 0 ? options.depth : 1;
        qos.resource_limits().max_samples = 0;
        qos.resource_limits().max_instances = 0;
        qos.resource_limits().max_samples_per_instance = 0;
        qos.resource_limits().extra_samples = peers::fast::kExtraSamples;
        qos.ownership().kind = options.exclusive ? dds::EXCLUSIVE_OWNERSHIP_QOS : dds::SHARED_OWNERSHIP_QOS;
        if (options.deadline > 0) {
            qos.deadline().period = Duration(static_cast<long double>(options.deadline));
        }
        qos.user_data().setValue(options.user_data);
        qos.endpoint().history_memory_policy = rtps::DYNAMIC_RESERVE_MEMORY_MODE;
        qos.data_sharing().off();
    }

    std::string create_writer(const std::string& name, dds::Topic* topic, const EndpointOptions& options,
                              GuidBytes& guid) {
        dds::PublisherQos group_qos;
        if (options.partitions) {
            fill_partitions(group_qos, *options.partitions);
        }
        Endpoint endpoint;
        endpoint.publisher = participant_->create_publisher(group_qos);
        dds::DataWriterQos qos;
        fill_qos(qos, options);
        qos.ownership_strength().value = static_cast<uint32_t>(options.strength);
        qos.writer_data_lifecycle().autodispose_unregistered_instances = false;
        // What does not fit one datagram can only be sent in fragments by the sending thread.
        qos.publish_mode().kind = dds::ASYNCHRONOUS_PUBLISH_MODE;
        endpoint.writer =
            endpoint.publisher == nullptr ? nullptr : endpoint.publisher->create_datawriter(topic, qos);
        if (endpoint.writer == nullptr) {
            return "create_datawriter failed";
        }
        endpoints_[name] = endpoint;
        guid = peers::fast::bytes_of(endpoint.writer->guid());
        return "";
    }

    std::string create_reader(const std::string& name, dds::Topic* topic, const EndpointOptions& options,
                              GuidBytes& guid) {
        dds::SubscriberQos group_qos;
        if (options.partitions) {
            fill_partitions(group_qos, *options.partitions);
        }
        Endpoint endpoint;
        endpoint.subscriber = participant_->create_subscriber(group_qos);
        dds::DataReaderQos qos;
        fill_qos(qos, options);
        endpoint.reader =
            endpoint.subscriber == nullptr ? nullptr : endpoint.subscriber->create_datareader(topic, qos);
        if (endpoint.reader == nullptr) {
            return "create_datareader failed";
        }
        endpoints_[name] = endpoint;
        guid = peers::fast::bytes_of(endpoint.reader->guid());
        return "";
    }

    template <typename Action>
    std::string with_writer(const std::string& name, Action action) {
        const auto found = endpoints_.find(name);
        if (found == endpoints_.end() || found->second.writer == nullptr) {
            return "no writer called " + name;
        }
        return action(*found->second.writer);
    }

    peers::fast::ParticipantList listener_;
    dds::DomainParticipant* participant_ = nullptr;
    std::map<std::string, dds::Topic*> topics_;
    std::map<std::string, Endpoint> endpoints_;
};

} // namespace

int main(int argc, char** argv) {
    FastPeer peer;
    return peers::run_commands(peer, argc, argv);
}
