#pragma once

#include "rtps/protocol/sinks.h"

namespace meridian::rtps::test {

/// For readers whose samples do not matter.
class SilentReader final : public ReaderSink {
  public:
    void on_sample(const Sample&) override {}
};

} // namespace meridian::rtps::test
