#pragma once

#include <memory>

#include "meridian/builtin_topics.h"
#include "platform/mutex.h"
#include "rtps/wire/types.h"

namespace meridian::discovery {

/// What is known of one remote participant. Shared by those who may still be asked about it after it is gone;
/// any thread.
class RemoteParticipant {
  public:
    using Data = std::shared_ptr<const DDS_ParticipantBuiltinTopicData>;

    RemoteParticipant(const rtps::GuidPrefix& prefix, DDS_ParticipantBuiltinTopicData data)
        : prefix_(prefix), data_(std::make_shared<DDS_ParticipantBuiltinTopicData>(std::move(data))) {}

    const rtps::GuidPrefix& prefix() const { return prefix_; }
    /// The last announcement; never null.
    Data data() const {
        MutexLock lock(mutex_);
        return data_;
    }
    void replace(DDS_ParticipantBuiltinTopicData data) {
        auto fresh = std::make_shared<DDS_ParticipantBuiltinTopicData>(std::move(data));
        MutexLock lock(mutex_);
        data_ = std::move(fresh);
    }

  private:
    const rtps::GuidPrefix prefix_;
    mutable Mutex mutex_;
    Data data_ MERIDIAN_GUARDED_BY(mutex_);
};

} // namespace meridian::discovery
