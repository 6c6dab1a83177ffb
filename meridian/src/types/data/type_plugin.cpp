#include "meridian/type_plugin.h"

#include <functional>
#include <memory>
#include <new>
#include <utility>
#include <vector>

#include "platform/mutex.h"

namespace meridian {
namespace {

struct ParticipantData {
    const DDS_TypeCode* type_code;
};

/// Things of one kind that are kept for the next user. Given back on another thread than they were taken on:
/// samples are filled on the receive thread and return from whoever read them.
class Pool {
  public:
    using Make = std::function<void*()>;
    using Drop = std::function<void(void*)>;

    /// Keeps at most `maximum` things that nobody uses; -1: any number. `make` may be empty: then nothing is
    /// to be had.
    Pool(Make make, Drop drop, DDS_Long maximum)
        : make_(std::move(make)), drop_(std::move(drop)), maximum_(maximum) {}
    ~Pool() {
        for (void* thing : free_)
            drop_(thing);
    }
    Pool(const Pool&) = delete;
    Pool& operator=(const Pool&) = delete;

    bool fill(DDS_Long count) {
        for (DDS_Long i = 0; i < count; ++i) {
            void* thing = make();
            if (thing == nullptr)
                return false;
            give_back(thing);
        }
        return true;
    }
    void* make() const { return make_ ? make_() : nullptr; }
    void drop(void* thing) const { drop_(thing); }

    void* get() MERIDIAN_EXCLUDES(mutex_) {
        {
            MutexLock lock(mutex_);
            if (!free_.empty()) {
                void* thing = free_.back();
                free_.pop_back();
                return thing;
            }
        }
        return make();
    }
    void give_back(void* thing) MERIDIAN_EXCLUDES(mutex_) {
        if (thing == nullptr)
            return;
        {
            MutexLock lock(mutex_);
            if (maximum_ < 0 || free_.size() < static_cast<size_t>(maximum_)) {
                free_.push_back(thing);
                return;
            }
        }
        drop(thing);
    }

  private:
    const Make make_;
    const Drop drop_;
    const DDS_Long maximum_;
    Mutex mutex_;
    std::vector<void*> free_ MERIDIAN_GUARDED_BY(mutex_);
};

struct EndpointData {
    EndpointData(Pool::Make make_sample, Pool::Drop drop_sample, DDS_Long maximum_samples,
                 Pool::Make make_key, Pool::Drop drop_key)
        : samples(std::move(make_sample), std::move(drop_sample), maximum_samples),
          keys(std::move(make_key), std::move(drop_key), -1) {}

    Pool samples;
    Pool keys;
    std::unique_ptr<Pool> buffers; // writers
    DDS_UnsignedLong buffer_size = 0;
};

EndpointData& endpoint(PRESTypePluginEndpointData data) {
    return *static_cast<EndpointData*>(data);
}

} // namespace
} // namespace meridian

using meridian::endpoint;
using meridian::EndpointData;
using meridian::ParticipantData;
using meridian::Pool;

PRESTypePluginParticipantData PRESTypePluginDefaultParticipantData_new(const DDS_TypeCode* typeCode) {
    return new (std::nothrow) ParticipantData{typeCode};
}

void PRESTypePluginDefaultParticipantData_delete(PRESTypePluginParticipantData participantData) {
    delete static_cast<ParticipantData*>(participantData);
}

PRESTypePluginEndpointData PRESTypePluginDefaultEndpointData_new(PRESTypePluginParticipantData,
                                                                 const PRESTypePluginEndpointInfo* info,
                                                                 PRESTypePluginCreateFunction createSample,
                                                                 PRESTypePluginDestroyFunction destroySample,
                                                                 PRESTypePluginCreateFunction createKey,
                                                                 PRESTypePluginDestroyFunction destroyKey) {
    auto* data = new (std::nothrow)
        EndpointData(createSample, destroySample, info->maximumSamples, createKey, destroyKey);
    if (data != nullptr && info->endpointKind == PRES_TYPEPLUGIN_ENDPOINT_READER &&
        !data->samples.fill(info->initialSamples)) {
        delete data;
        return nullptr;
    }
    return data;
}

void PRESTypePluginDefaultEndpointData_delete(PRESTypePluginEndpointData endpointData) {
    delete static_cast<EndpointData*>(endpointData);
}

bool PRESTypePluginDefaultEndpointData_createWriterPool(PRESTypePluginEndpointData endpointData,
                                                        const PRESTypePluginEndpointInfo* info,
                                                        DDS_UnsignedLong bufferSize) {
    auto buffers = std::make_unique<Pool>(
        [bufferSize]() -> void* { return new (std::nothrow) char[bufferSize]; },
        [](void* buffer) { delete[] static_cast<char*>(buffer); }, info->maximumSamples);
    if (!buffers->fill(info->initialSamples))
        return false;
    endpoint(endpointData).buffers = std::move(buffers);
    endpoint(endpointData).buffer_size = bufferSize;
    return true;
}

void* PRESTypePluginDefaultEndpointData_createSample(PRESTypePluginEndpointData endpointData) {
    return endpoint(endpointData).samples.make();
}

void PRESTypePluginDefaultEndpointData_deleteSample(PRESTypePluginEndpointData endpointData, void* sample) {
    endpoint(endpointData).samples.drop(sample);
}

void* PRESTypePluginDefaultEndpointData_getSample(PRESTypePluginEndpointData endpointData) {
    return endpoint(endpointData).samples.get();
}

void PRESTypePluginDefaultEndpointData_returnSample(PRESTypePluginEndpointData endpointData, void* sample) {
    endpoint(endpointData).samples.give_back(sample);
}

char* PRESTypePluginDefaultEndpointData_getBuffer(PRESTypePluginEndpointData endpointData,
                                                  DDS_UnsignedLong size) {
    EndpointData& data = endpoint(endpointData);
    if (data.buffers == nullptr || size > data.buffer_size)
        return nullptr;
    return static_cast<char*>(data.buffers->get());
}

void PRESTypePluginDefaultEndpointData_returnBuffer(PRESTypePluginEndpointData endpointData, char* buffer) {
    if (endpoint(endpointData).buffers != nullptr)
        endpoint(endpointData).buffers->give_back(buffer);
}

void* PRESTypePluginDefaultEndpointData_getKey(PRESTypePluginEndpointData endpointData) {
    return endpoint(endpointData).keys.get();
}

void PRESTypePluginDefaultEndpointData_returnKey(PRESTypePluginEndpointData endpointData, void* key) {
    endpoint(endpointData).keys.give_back(key);
}
