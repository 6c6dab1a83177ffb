#pragma once

// What the readers and writers behind the public interface have in common.

#include <atomic>
#include <string>
#include <type_traits>
#include <utility>
#include <vector>

#include "dcps/common/entity_impl.h"
#include "dcps/common/qos_change.h"
#include "dcps/endpoints/endpoint_qos.h"
#include "dcps/endpoints/endpoint_statuses.h"
#include "dcps/topics/topic.h"
#include "dcps/topics/type_registry.h"
#include "platform/log.h"
#include "platform/mutex.h"
#include "rtps/net/runtime.h"

namespace meridian::dcps {

/// The subscriber or publisher as its endpoints see it.
template <typename Interface, typename Endpoint>
class EndpointOwner : public Interface {
  public:
    /// Starts one of its endpoints; it must be enabled itself.
    virtual DDS_ReturnCode_t enable_endpoint(Endpoint& endpoint) = 0;

  protected:
    ~EndpointOwner() override = default;
};

/// Topic, type, QoS and statuses of one endpoint, and the part that it has in the protocol. Interface is
/// DDSUntypedDataReader with DDS_DataReaderQos, or DDSUntypedDataWriter with DDS_DataWriterQos; Statuses are
/// EndpointStatuses.
template <typename Interface, typename Qos, typename Statuses>
class UserEndpoint : public EntityImpl<Interface> {
  public:
    TopicImpl& topic() const { return topic_; }
    /// The QoS of the subscriber or publisher has changed.
    void set_group(const DDS_GroupPolicies& group) MERIDIAN_EXCLUDES(mutex_) {
        keep_group(group);
        announce();
    }

    DDS_ReturnCode_t get_qos(Qos& qos) override MERIDIAN_EXCLUDES(mutex_) {
        MutexLock lock(mutex_);
        qos = qos_;
        return DDS_RETCODE_OK;
    }
    DDS_ReturnCode_t set_qos(const Qos& qos) override MERIDIAN_EXCLUDES(mutex_) {
        {
            MutexLock lock(mutex_);
            const DDS_ReturnCode_t result = change_qos(qos_, qos, this->is_enabled(), kKind);
            if (result != DDS_RETCODE_OK)
                return result;
            qos_changed();
        }
        announce();
        return DDS_RETCODE_OK;
    }

  protected:
    /// Attaches the type plugin. The topic must outlive the endpoint.
    UserEndpoint(TopicImpl& topic, TypeRegistry::Type type, const rtps::Guid& guid, const Qos& qos)
        : EntityImpl<Interface>(guid),
          topic_(topic),
          type_(std::move(type)),
          keyed_(type_->is_keyed()),
          qos_(qos) {
        const PRESTypePluginEndpointInfo info{
            kIsReader ? PRES_TYPEPLUGIN_ENDPOINT_READER : PRES_TYPEPLUGIN_ENDPOINT_WRITER, topic.get_name()};
        endpoint_ = plugin().onEndpointAttached(type_->participant_data(), &info);
        if (endpoint_ == nullptr)
            MERIDIAN_LOG_ERROR("dcps", "%s of topic \"%s\": the plugin of type \"%s\" refused it", kKind,
                               topic.get_name(), topic.get_type_name());
    }
    ~UserEndpoint() override {
        if (endpoint_ != nullptr)
            plugin().onEndpointDetached(endpoint_);
    }

    /// False: the plugin refused the endpoint, and logged it; the endpoint cannot be used.
    bool is_attached() const { return endpoint_ != nullptr; }
    const PRESTypePlugin& plugin() const { return type_->plugin(); }
    PRESTypePluginEndpointData plugin_data() const { return endpoint_; }

    /// `add(participant, now)` adds the endpoint to the protocol; false when it could not. The runtime must
    /// outlive leave. Called once.
    template <typename Add>
    bool join(rtps::net::Runtime& runtime, const DDS_GroupPolicies& group, Add add)
        MERIDIAN_EXCLUDES(mutex_) {
        keep_group(group);
        return runtime.with_participant([&](rtps::Participant& participant, rtps::Now now) {
            if (!add(participant, now))
                return false;
            // Under the lock: the first sample must find the reader enabled.
            this->set_enabled();
            runtime_.store(&runtime, std::memory_order_release);
            return true;
        });
    }
    /// No event comes any more when this returns. Without effect where nothing was joined.
    void leave() {
        if (rtps::net::Runtime* const joined = runtime_.exchange(nullptr))
            joined->with_participant([this](rtps::Participant& participant, rtps::Now now) {
                participant.remove_endpoint(this->guid().entity, now);
            });
    }
    /// Null before join and after leave. Any thread.
    rtps::net::Runtime* runtime() const { return runtime_.load(std::memory_order_acquire); }

    /// `qos_` has changed.
    virtual void qos_changed() MERIDIAN_REQUIRES(mutex_) {}
    rtps::EndpointQos endpoint_qos() MERIDIAN_REQUIRES(mutex_) {
        DDS_TopicQos topic;
        topic_.get_qos(topic);
        return to_endpoint_qos(qos_, group_, topic);
    }
    rtps::EndpointData endpoint_data() MERIDIAN_EXCLUDES(mutex_) {
        MutexLock lock(mutex_);
        return to_endpoint_data(this->guid(), topic_, endpoint_qos(), name_of(qos_), qos_.property);
    }

    /// Counts and logs a remote endpoint that these policies keep away. False where none of them counts: a
    /// difference of partitions is not a mistake.
    bool count_incompatible(const rtps::RemoteEndpoint& remote, const std::vector<uint32_t>& policies)
        MERIDIAN_REQUIRES(mutex_) {
        const std::vector<uint32_t> counted = without_partition(policies);
        if (counted.empty())
            return false;
        const rtps::EndpointQos own = endpoint_qos();
        const std::string difference = kIsReader ? describe_incompatibility(*remote.qos, own, counted)
                                                 : describe_incompatibility(own, *remote.qos, counted);
        MERIDIAN_LOG_WARNING("dcps", "topic \"%s\": %s %s does not match the %s: %s", topic_.get_name(),
                             kIsReader ? "writer" : "reader", rtps::to_string(remote.guid).c_str(), kKind,
                             difference.c_str());
        statuses_.incompatible(counted);
        return true;
    }

    TopicImpl& topic_;
    const TypeRegistry::Type type_;
    const bool keyed_;
    Mutex mutex_;
    Qos qos_ MERIDIAN_GUARDED_BY(mutex_);
    Statuses statuses_ MERIDIAN_GUARDED_BY(mutex_);

  private:
    static constexpr bool kIsReader = std::is_same_v<Qos, DDS_DataReaderQos>;
    static constexpr const char* kKind = kIsReader ? "reader" : "writer";

    void keep_group(const DDS_GroupPolicies& group) MERIDIAN_EXCLUDES(mutex_) {
        MutexLock lock(mutex_);
        group_ = group;
    }
    void announce() MERIDIAN_EXCLUDES(mutex_) {
        if (rtps::net::Runtime* const joined = runtime())
            joined->with_participant([this](rtps::Participant& participant, rtps::Now now) {
                participant.update_endpoint(endpoint_data(), now);
            });
    }

    PRESTypePluginEndpointData endpoint_ = nullptr;
    std::atomic<rtps::net::Runtime*> runtime_{nullptr};
    DDS_GroupPolicies group_ MERIDIAN_GUARDED_BY(mutex_);
};

} // namespace meridian::dcps
