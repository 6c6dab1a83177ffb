// What differs between the releases of Fast DDS, in one place: names of headers, namespaces and operations.
// Everything else of the peers is the same for 2.6, 2.9, 2.14 and 3.x.
#pragma once

#include <array>
#include <cstdint>
#include <cstring>
#include <functional>
#include <map>
#include <memory>
#include <mutex>
#include <string>

#if __has_include(<fastdds/config.hpp>)
#include <fastdds/config.hpp>
#include <fastdds/rtps/transport/UDPv4TransportDescriptor.hpp>
#include <fastdds/rtps/transport/UDPv6TransportDescriptor.hpp>
#include <fastdds/utils/IPLocator.hpp>
#else
#include <fastdds/rtps/transport/UDPv4TransportDescriptor.h>
#include <fastdds/rtps/transport/UDPv6TransportDescriptor.h>
#include <fastrtps/config.h>
#include <fastrtps/utils/IPLocator.h>
#define FASTDDS_VERSION_MAJOR FASTRTPS_VERSION_MAJOR
#define FASTDDS_VERSION_MINOR FASTRTPS_VERSION_MINOR
#define FASTDDS_VERSION_MICRO FASTRTPS_VERSION_MICRO
#endif

#include <fastcdr/Cdr.h>
#include <fastcdr/config.h>
#include <fastdds/dds/domain/DomainParticipant.hpp>
#include <fastdds/dds/domain/DomainParticipantFactory.hpp>
#include <fastdds/dds/domain/DomainParticipantListener.hpp>
#include <fastdds/dds/publisher/Publisher.hpp>
#include <fastdds/dds/topic/TopicDataType.hpp>

namespace peers::fast {

namespace dds = eprosima::fastdds::dds;
namespace transport = eprosima::fastdds::rtps;

#if FASTDDS_VERSION_MAJOR >= 3
namespace rtps = eprosima::fastdds::rtps;
using Duration = dds::Duration_t;
using DiscoveryKind = rtps::DiscoveryProtocol;
using Result = dds::ReturnCode_t;
inline bool is_ok(Result result) {
    return result == dds::RETCODE_OK;
}
// Room for what the sending thread holds; without it a write into a full history can fail.
constexpr int32_t kExtraSamples = 100;
inline std::string reason(Result result) {
    return "return code " + std::to_string(result);
}
#else
namespace rtps = eprosima::fastrtps::rtps;
using Duration = eprosima::fastrtps::Duration_t;
using DiscoveryKind = rtps::DiscoveryProtocol_t;
using Result = eprosima::fastrtps::types::ReturnCode_t;
inline bool is_ok(const Result& result) {
    return result == Result::RETCODE_OK;
}
constexpr int32_t kExtraSamples = 1; // the library's default
// write() tells no more than this.
inline bool is_ok(bool result) {
    return result;
}
inline std::string reason(bool) {
    return "no reason is told";
}
#endif

inline std::string release() {
    return "Fast DDS " + std::to_string(FASTDDS_VERSION_MAJOR) + '.' + std::to_string(FASTDDS_VERSION_MINOR) +
           '.' + std::to_string(FASTDDS_VERSION_MICRO);
}

using GuidBytes = std::array<uint8_t, 16>;

inline GuidBytes bytes_of(const rtps::GUID_t& guid) {
    GuidBytes bytes{};
    std::memcpy(bytes.data(), guid.guidPrefix.value, 12);
    std::memcpy(bytes.data() + 12, guid.entityId.value, 4);
    return bytes;
}

// A type support that is written by hand, announces a name only and writes XCDR1 in this machine's byte
// order.
class HandWrittenType : public dds::TopicDataType {
  public:
    HandWrittenType(const std::string& name, bool keyed, uint32_t room) {
#if FASTDDS_VERSION_MAJOR >= 3
        set_name(name);
        is_compute_key_provided = keyed;
        max_serialized_type_size = room;
#else
        setName(name.c_str());
        m_isGetKeyDefined = keyed;
        m_typeSize = room;
        auto_fill_type_object(false);
        auto_fill_type_information(false);
#endif
        keyed_ = keyed;
    }

    // Fills the payload, encapsulation header included.
    virtual bool encode(const void* sample, rtps::SerializedPayload_t& payload) = 0;
    virtual bool decode(const rtps::SerializedPayload_t& payload, void* sample) = 0;
    // Encapsulation header included.
    virtual uint32_t size_of(const void* sample) const = 0;
    virtual void* create() const = 0;
    virtual void destroy(void* sample) const = 0;
    virtual void key_of(const void* sample, rtps::InstanceHandle_t& key) const = 0;

#if FASTDDS_VERSION_MAJOR >= 3
    bool serialize(const void* data, rtps::SerializedPayload_t& payload, dds::DataRepresentationId_t) final {
        return encode(data, payload);
    }
    bool deserialize(rtps::SerializedPayload_t& payload, void* data) final {
        return decode(payload, data);
    }
    uint32_t calculate_serialized_size(const void* data, dds::DataRepresentationId_t) final {
        return size_of(data);
    }
    void* create_data() final {
        return create();
    }
    void delete_data(void* data) final {
        destroy(data);
    }
    bool compute_key(rtps::SerializedPayload_t& payload, rtps::InstanceHandle_t& key, bool) final {
        void* sample = create();
        const bool decoded = keyed_ && decode(payload, sample);
        if (decoded) {
            key_of(sample, key);
        }
        destroy(sample);
        return decoded;
    }
    bool compute_key(const void* data, rtps::InstanceHandle_t& key, bool) final {
#else
    bool serialize(void* data, rtps::SerializedPayload_t* payload) final {
        return encode(data, *payload);
    }
    bool deserialize(rtps::SerializedPayload_t* payload, void* data) final {
        return decode(*payload, data);
    }
    std::function<uint32_t()> getSerializedSizeProvider(void* data) final {
        return [this, data] { return size_of(data); };
    }
    void* createData() final {
        return create();
    }
    void deleteData(void* data) final {
        destroy(data);
    }
    bool getKey(void* data, rtps::InstanceHandle_t* handle, bool) final {
        rtps::InstanceHandle_t& key = *handle;
#endif
        if (keyed_) {
            key_of(data, key);
        }
        return keyed_;
    }

  private:
    bool keyed_ = false;
};

// Keeps the list of the participants of others; the library calls from its receiving threads.
class ParticipantList final : public dds::DomainParticipantListener {
  public:
#if FASTDDS_VERSION_MAJOR >= 3
    void on_participant_discovery(dds::DomainParticipant*, rtps::ParticipantDiscoveryStatus status,
                                  const dds::ParticipantBuiltinTopicData& data, bool&) override {
        using Status = rtps::ParticipantDiscoveryStatus;
        note(bytes_of(data.guid), data.participant_name.c_str(),
             status == Status::REMOVED_PARTICIPANT || status == Status::DROPPED_PARTICIPANT);
    }
#else
    // Some releases have a second form, and call both.
    using dds::DomainParticipantListener::on_participant_discovery;
    void on_participant_discovery(dds::DomainParticipant*, rtps::ParticipantDiscoveryInfo&& info) override {
        using Status = rtps::ParticipantDiscoveryInfo;
        note(bytes_of(info.info.m_guid), info.info.m_participantName.c_str(),
             info.status == Status::REMOVED_PARTICIPANT || info.status == Status::DROPPED_PARTICIPANT);
    }
#endif

    std::map<GuidBytes, std::string> names() {
        const std::lock_guard<std::mutex> lock(mutex_);
        return names_;
    }

  private:
    void note(const GuidBytes& guid, const char* name, bool gone) {
        const std::lock_guard<std::mutex> lock(mutex_);
        if (gone) {
            names_.erase(guid);
        } else {
            names_[guid] = name;
        }
    }

    std::mutex mutex_;
    std::map<GuidBytes, std::string> names_;
};

// The participant is a client of a discovery server with this prefix at this address.
template <typename DiscoverySettings>
void add_server(DiscoverySettings& settings, const char* prefix, const rtps::Locator_t& locator) {
#if FASTDDS_VERSION_MAJOR >= 3
    static_cast<void>(prefix);
    settings.m_DiscoveryServers.push_back(locator);
#else
    rtps::RemoteServerAttributes server;
    server.ReadguidPrefix(prefix);
    server.metatrafficUnicastLocatorList.push_back(locator);
    settings.m_DiscoveryServers.push_back(server);
#endif
}

// A property that the participant announces. False: this release announces none of an application.
inline bool announce_property(dds::DomainParticipantQos& qos, const std::string& name,
                              const std::string& value) {
#if FASTDDS_VERSION_MAJOR == 2 && FASTDDS_VERSION_MINOR <= 6
    return static_cast<void>(qos), static_cast<void>(name), static_cast<void>(value), false;
#else
    qos.properties().properties().emplace_back(name, value, true);
    return true;
#endif
}

// A participant that speaks UDP only, with a publisher.
class UdpApplication {
  public:
    explicit UdpApplication(dds::DomainParticipantQos qos = dds::DomainParticipantQos()) {
        qos.transport().use_builtin_transports = false;
        qos.transport().user_transports.push_back(std::make_shared<transport::UDPv4TransportDescriptor>());
        participant_ = dds::DomainParticipantFactory::get_instance()->create_participant(0, qos);
        publisher_ =
            participant_ == nullptr ? nullptr : participant_->create_publisher(dds::PUBLISHER_QOS_DEFAULT);
    }
    ~UdpApplication() {
        if (participant_ != nullptr) {
            participant_->delete_contained_entities();
            dds::DomainParticipantFactory::get_instance()->delete_participant(participant_);
        }
    }
    UdpApplication(const UdpApplication&) = delete;
    UdpApplication& operator=(const UdpApplication&) = delete;

    bool is_usable() const { return publisher_ != nullptr; }
    dds::DomainParticipant& participant() { return *participant_; }
    dds::Publisher& publisher() { return *publisher_; }

  private:
    dds::DomainParticipant* participant_ = nullptr;
    dds::Publisher* publisher_ = nullptr;
};

// A stream of plain XCDR1 in this machine's byte order.
class PlainStream final : public eprosima::fastcdr::Cdr {
  public:
#if FASTCDR_VERSION_MAJOR >= 2
    explicit PlainStream(eprosima::fastcdr::FastBuffer& buffer)
        : Cdr(buffer, DEFAULT_ENDIAN, eprosima::fastcdr::CdrVersion::XCDRv1) {
        set_encoding_flag(eprosima::fastcdr::EncodingAlgorithmFlag::PLAIN_CDR);
    }
    uint32_t length() const {
        return static_cast<uint32_t>(get_serialized_data_length());
    }
#else
    explicit PlainStream(eprosima::fastcdr::FastBuffer& buffer) : Cdr(buffer, DEFAULT_ENDIAN, DDS_CDR) {}
    uint32_t length() const {
        return static_cast<uint32_t>(getSerializedDataLength());
    }
#endif
};

} // namespace peers::fast
