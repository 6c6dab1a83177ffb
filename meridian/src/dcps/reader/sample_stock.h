#pragma once

#include <vector>

#include "dcps/reader/reader_cache.h"
#include "meridian/type_plugin.h"

namespace meridian::dcps {

/// The free samples of one reader. They come from the plugin's pool as far as more are needed, and go back
/// there when the reader ends; in between they go round here, so that a sample costs no lock of that pool.
///
/// Two sides: samples are used on the thread that receives, and released with the reader locked.
class SampleStock final : public SampleOwner {
  public:
    /// The endpoint may be null as long as no sample is asked for.
    SampleStock(const PRESTypePlugin& plugin, PRESTypePluginEndpointData endpoint)
        : plugin_(plugin), endpoint_(endpoint) {}
    ~SampleStock() override {
        collect();
        for (void* sample : free_)
            plugin_.returnSample(endpoint_, sample);
    }
    SampleStock(const SampleStock&) = delete;
    SampleStock& operator=(const SampleStock&) = delete;

    /// On the thread that receives. Null when memory is short.
    void* get() {
        if (free_.empty())
            return plugin_.getSample(endpoint_);
        void* sample = free_.back();
        free_.pop_back();
        return sample;
    }
    /// On the thread that receives: the sample was not used.
    void put_back(void* sample) { free_.push_back(sample); }
    /// With the reader locked.
    void release_sample(void* sample) override { released_.push_back(sample); }
    /// What was released can be used again. On the thread that receives, with the reader locked.
    void collect() {
        free_.insert(free_.end(), released_.begin(), released_.end());
        released_.clear();
    }

  private:
    const PRESTypePlugin& plugin_;
    const PRESTypePluginEndpointData endpoint_;
    std::vector<void*> free_;
    std::vector<void*> released_;
};

} // namespace meridian::dcps
