#pragma once

// Contents as indented lines for people: see docs/contents.md.

#include "types/data/nesting.h"
#include "types/data/print_buffers.h"

namespace meridian::types {

constexpr int kIndentWidth = 3;

class PlainPrinter final : public Printer {
  public:
    /// Appends to the text of `buffers`, which must outlive the printer.
    PlainPrinter(PrintBuffers& buffers, int indent, const TextTarget& target = {})
        : Printer(buffers, target),
          characters_(buffers.characters),
          wide_characters_(buffers.wide_characters),
          start_(out_.size()),
          level_(indent < 0 ? 0 : indent) {}

    bool scalar(const Type& type, const Scalar& value) override;
    bool begin(const Type& type, uint64_t count) override;
    bool end(const Type& type) override;
    bool discriminator() override;
    bool member(const Member& member) override;
    bool element(uint64_t index) override;
    bool key(uint64_t index) override;
    bool mapped() override;
    bool takes_primitives(const Type& type, uint64_t count) const override;
    bool primitives(const Type& type, rtps::ByteReader& reader, uint64_t count) override;
    void retract() override { out_.resize(std::min(start_, out_.size())); }

    /// Ends the line that a failure left open.
    void close();

  private:
    /// What stands before a value: nothing, "name:" on a line that is not ended, or "[" of a map's key.
    enum class Lead { none, label, key };

    void start_line();
    bool label(std::string_view text);
    void put_value(const Type& type, const Scalar& value);
    void put_index(uint64_t index);
    void put_character(const Type& type, const Scalar& value);
    void put_characters();
    void end_layout();
    /// Whether a row ends behind the element of that number.
    bool ends_row(uint64_t index) const;
    bool goes_on_or_cuts();

    /// How the elements of a collection are written: each on a line of its own; many to a line; as one text.
    enum class Layout : uint8_t { lines, rows, text };
    struct Level {
        const Type* array; // of more than one dimension
        bool scalar_keys;
        Layout layout;
        bool in_row;    // on a line that is not ended
        uint64_t index; // of the element
    };

    std::string& characters_;
    std::u16string& wide_characters_;
    const size_t start_; // of what is printed
    int level_;
    Lead lead_ = Lead::none;
    uint64_t nuls_ = 0; // at the end of a text, so far
    NestingStack<Level> open_;
};

} // namespace meridian::types
