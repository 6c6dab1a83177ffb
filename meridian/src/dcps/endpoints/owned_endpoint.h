#pragma once

#include <memory>
#include <utility>

#include "dcps/topics/topic.h"
#include "meridian/type_support.h"

namespace meridian::dcps {

/// An untyped reader or writer with the typed one around it that callers see, and its claim on the topic.
/// Untyped has stop(), after which it makes no callback any more; Face is DDSDataReader or DDSDataWriter.
template <typename Untyped, typename Face>
class OwnedEndpoint {
  public:
    using Destroy = DDS_ReturnCode_t (DDSTypeSupport::*)(Face*);

    /// A null face: callers see the untyped endpoint itself. `destroy` is how the type support drops the
    /// face.
    OwnedEndpoint(std::unique_ptr<Untyped> untyped, std::shared_ptr<TopicImpl> topic, Face* face,
                  Destroy destroy)
        : topic_(std::move(topic)),
          untyped_(std::move(untyped)),
          face_(face != nullptr ? face : untyped_.get()),
          destroy_(destroy) {}
    /// Ends the endpoint first.
    ~OwnedEndpoint() {
        untyped_->stop();
        if (face_ != untyped_.get())
            (topic_->type()->type_support()->*destroy_)(face_);
    }
    OwnedEndpoint(const OwnedEndpoint&) = delete;
    OwnedEndpoint& operator=(const OwnedEndpoint&) = delete;

    Untyped& untyped() { return *untyped_; }
    TopicImpl& topic() { return *topic_; }
    Face* face() { return face_; }

  private:
    // In the order in which the one needs the other.
    const std::shared_ptr<TopicImpl> topic_;
    const std::unique_ptr<Untyped> untyped_;
    Face* const face_;
    const Destroy destroy_;
};

} // namespace meridian::dcps
