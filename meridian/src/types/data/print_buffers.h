#pragma once

// The text of a sample while it is printed: how much memory it takes and where it ends.

#include <algorithm>
#include <cstddef>
#include <cstdint>
#include <string>
#include <string_view>

#include "types/data/value_sink.h"

namespace meridian::types {

/// Memory of a printer, for the next one to use again.
struct PrintBuffers {
    std::string text;       // what was printed
    std::string value;      // one value of it, before it is escaped
    std::string characters; // of an array, before they are made a value
    std::u16string wide_characters;
};

/// Takes text that has become long, so that large samples need no large memory.
class TextSpill {
  public:
    virtual ~TextSpill() = default;
    virtual void take(std::string_view text) = 0;
    /// Whether only the length of the text matters: then count() may be told of some of it instead.
    virtual bool counts() const { return false; }
    virtual void count(uint64_t /*length*/) {}
};

struct TextTarget {
    TextSpill* spill = nullptr; // without one all text is kept
    /// Longer texts end in kCutMark.
    uint64_t limit = UINT64_MAX;
    /// It takes pieces of about this length.
    size_t piece = size_t{64} * 1024;
};

constexpr std::string_view kCutMark = "...";

/// What the text of a sample may take: elements without octets must not make endless text of a short one.
constexpr uint64_t text_limit(size_t payload_size) {
    return std::max<uint64_t>(uint64_t{1} << 20, 16 * uint64_t{payload_size});
}

/// A sink that makes text.
class Printer : public ValueSink {
  public:
    /// The text reached its limit. The walk was ended then.
    bool is_cut() const { return is_cut_; }

  protected:
    /// Appends to the text of `buffers`, which must outlive the printer.
    Printer(PrintBuffers& buffers, const TextTarget& target)
        : out_(buffers.text), value_(buffers.value), target_(target), room_(room()) {}

    /// Between two values. False when there has been enough text.
    bool goes_on() { return out_.size() < room_ || makes_room(); }

    /// For text too long to be kept: whether count() may be told its length instead.
    bool counts(uint64_t length) const {
        return 4 * length > target_.piece && target_.spill != nullptr && target_.spill->counts();
    }
    void count(uint64_t length) {
        spill();
        target_.spill->count(length);
        spilled_ += length;
        room_ = room();
    }

    std::string& out_;
    std::string& value_;

  private:
    void spill() {
        target_.spill->take(out_);
        spilled_ += out_.size();
        out_.clear();
    }
    uint64_t room() const {
        const uint64_t left = target_.limit - std::min(spilled_, target_.limit);
        return target_.spill != nullptr ? std::min<uint64_t>(target_.piece, left) : left;
    }
    bool makes_room() {
        is_cut_ = spilled_ + out_.size() >= target_.limit;
        if (is_cut_ || target_.spill == nullptr)
            return !is_cut_;
        spill();
        room_ = room();
        return true;
    }

    const TextTarget target_;
    uint64_t spilled_ = 0;
    uint64_t room_;
    bool is_cut_ = false;
};

} // namespace meridian::types
