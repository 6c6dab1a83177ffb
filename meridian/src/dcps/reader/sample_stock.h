#pragma once

#include <utility>
#include <vector>

#include "dcps/reader/reader_cache.h"
#include "meridian/type_plugin.h"
#include "platform/memory_budget.h"

namespace meridian::dcps {

/// The free samples of one reader. They come from the plugin as far as more are needed; in between they go
/// round here. No more are kept than steady traffic has under way: what a peak took is given back. Thousands
/// of readers together keep no more than leaves the budget ample.
///
/// Two sides: samples are used on the thread that receives, and released with the reader locked.
class SampleStock final : public SampleOwner {
  public:
    /// The endpoint may be null as long as no sample is asked for. What is kept is taken from the share,
    /// which must outlive the stock.
    SampleStock(const PRESTypePlugin& plugin, PRESTypePluginEndpointData endpoint, MemoryShare& share)
        : plugin_(plugin), memory_of_(plugin.getSampleMemory), endpoint_(endpoint), share_(share) {}
    ~SampleStock() override {
        collect();
        for (void* sample : free_)
            plugin_.returnSample(endpoint_, sample);
        share_.give_back(kept_);
    }
    SampleStock(const SampleStock&) = delete;
    SampleStock& operator=(const SampleStock&) = delete;

    /// Bytes that a sample takes which was made of `serialized` ones.
    size_t memory_of(const void* sample, size_t serialized) const {
        return memory_of_ != nullptr ? memory_of_(sample) : serialized + kObject;
    }

    /// On the thread that receives. Null when memory is short.
    void* get() {
        if (free_.empty())
            return plugin_.getSample(endpoint_);
        void* sample = free_.back();
        free_.pop_back();
        used_ += memory_of(sample, 0);
        return sample;
    }
    /// On the thread that receives: the sample was not used.
    void put_back(void* sample) { unused_.push_back(sample); }
    /// With the reader locked.
    void release_sample(void* sample) override {
        const size_t bytes = memory_of(sample, 0);
        const bool is_wanted = share_.budget().is_ample() && (kept_ == 0 || kept_ + bytes <= kMostKept);
        if (!is_wanted || !share_.take(bytes)) {
            (plugin_.deleteSample != nullptr ? plugin_.deleteSample : plugin_.returnSample)(endpoint_,
                                                                                            sample);
            return;
        }
        kept_ += bytes;
        released_.push_back(sample);
    }
    /// What was released can be used again. On the thread that receives, with the reader locked.
    void collect() {
        share_.give_back(used_);
        kept_ -= std::exchange(used_, 0);
        for (void* sample : unused_)
            release_sample(sample);
        unused_.clear();
        free_.insert(free_.end(), released_.begin(), released_.end());
        released_.clear();
    }

  private:
    static constexpr size_t kMostKept = size_t{4} << 20; // bytes
    static constexpr size_t kObject = 64;                // about what an object takes with its allocator

    const PRESTypePlugin& plugin_;
    decltype(PRESTypePlugin::getSampleMemory) const memory_of_; // asked for each sample
    const PRESTypePluginEndpointData endpoint_;
    MemoryShare& share_;
    size_t kept_ = 0;         // bytes of those that are free or released, and those used since collect()
    size_t used_ = 0;         // bytes of those that were free and are used, since collect()
    std::vector<void*> free_; // like unused_ and used_, of the side that receives
    std::vector<void*> unused_;
    std::vector<void*> released_;
};

} // namespace meridian::dcps
