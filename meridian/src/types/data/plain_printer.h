#pragma once

// Contents as indented lines for people: see docs/contents.md.

#include "types/data/nesting.h"
#include "types/data/print_buffers.h"
#include "types/data/value_sink.h"

namespace meridian::types {

constexpr int kIndentWidth = 3;

class PlainPrinter final : public ValueSink {
  public:
    /// Appends to the text of `buffers`, which must outlive the printer.
    PlainPrinter(PrintBuffers& buffers, int indent)
        : out_(buffers.text), value_(buffers.value), start_(out_.size()), level_(indent < 0 ? 0 : indent) {}

    bool scalar(const Type& type, const Scalar& value) override;
    bool begin(const Type& type, uint64_t count) override;
    bool end(const Type& type) override;
    bool discriminator() override;
    bool member(const Member& member) override;
    bool element(uint64_t index) override;
    bool key(uint64_t index) override;
    bool mapped() override;
    void retract() override { out_.resize(start_); }

    /// Ends the line that a failure left open.
    void close();

  private:
    /// What stands before a value: nothing, "name:" on a line that is not ended, or "[" of a map's key.
    enum class Lead { none, label, key };

    void start_line();
    bool label(std::string_view text);
    void put_value(const Type& type, const Scalar& value);

    struct Level {
        const Type* array; // of more than one dimension
        bool scalar_keys;
    };

    std::string& out_;
    std::string& value_;
    const size_t start_; // of what is printed
    int level_;
    Lead lead_ = Lead::none;
    NestingStack<Level> open_;
};

} // namespace meridian::types
