#pragma once

// From a received sample to a change of an instance: the type plugin says which instance it belongs to and
// makes the sample that the reader hands out.

#include <memory>

#include "dcps/reader/key_aliases.h"
#include "dcps/reader/reader_cache.h"
#include "dcps/reader/sample_stock.h"
#include "dcps/topics/type_registry.h"
#include "rtps/protocol/sinks.h"

namespace meridian::dcps {

/// The decoder of one reader. On the thread that receives, under the lock of the runtime.
class SampleDecoder {
  public:
    enum class Result {
        decoded,
        undecodable, // the payload is not what the type says; the change has no sample
        ignored,     // it says nothing of an instance, or the plugin has no use for it
    };

    /// All must outlive the decoder; samples come from `stock`.
    SampleDecoder(const RegisteredType& type, PRESTypePluginEndpointData endpoint, SampleStock& stock);

    /// Fills in a change that was just made. Its sample, where it has one, is the caller's.
    Result decode(const rtps::Sample& sample, Change& change);
    /// The writer is gone.
    void forget(const rtps::Guid& writer) { aliases_.forget(writer); }

  private:
    const PRESTypePlugin& plugin() const { return type_.plugin(); }
    /// `made` becomes the sample that the plugin makes of the payload, null when it dropped it. False when
    /// the payload cannot be read.
    bool deserialize(const rtps::Sample& sample, void*& made);
    rtps::KeyHash key_hash(const rtps::Sample& sample);

    const RegisteredType& type_;
    // Looked up once: with many topics the record of the plugin would have to be fetched for each sample.
    decltype(PRESTypePlugin::deserialize) const deserialize_;
    const PRESTypePluginEndpointData endpoint_;
    SampleStock& stock_;
    const bool keyed_;
    const std::unique_ptr<KeyForms> key_forms_; // null where no writer needs it
    KeyAliases aliases_;
};

} // namespace meridian::dcps
