#pragma once

// From XML elements to values. One ElementReader reads all elements of one entity's QoS, base first: what a
// later element says replaces what an earlier one said, leaf by leaf, and a list replaces a list.

#include <cstdint>
#include <initializer_list>
#include <pugixml.hpp>
#include <set>
#include <string>
#include <vector>

#include "meridian/qos.h"
#include "qos/document.h"

namespace meridian::qos {

/// A name that stands for a number. Names are understood with and without the prefix "DDS_".
struct NamedValue {
    const char* name;
    int64_t value;
};

class ElementReader {
  public:
    /// The document of the elements that are read next; must outlive their reading.
    void set_document(const Document& document) { document_ = &document; }

    /// To read the QoS of another entity.
    void forget_durations() { stated_durations_.clear(); }

    /// False after the first failure; what is read after it is of no use.
    bool ok() const { return error_.empty(); }
    const std::string& error() const { return error_; }
    /// Keeps the first message.
    void fail(pugi::xml_node element, const std::string& reason);

    /// Fails for attributes that are not in the list, and for those that appear twice. Namespaces are
    /// allowed.
    void check_attributes(pugi::xml_node element, std::initializer_list<const char*> known);

    /// The value of an attribute, if there is one.
    void boolean_attribute(pugi::xml_node element, const char* name, bool& value);

    enum class Attributes { none, any };
    /// The child elements; fails for text between them, and for attributes of theirs unless `attributes`
    /// allows any.
    std::vector<pugi::xml_node> children(pugi::xml_node element, Attributes attributes = Attributes::none);
    /// The children, which must all be called <element>.
    std::vector<pugi::xml_node> list(pugi::xml_node element);
    /// The text without surrounding blanks; fails for child elements.
    std::string text(pugi::xml_node element);

    void boolean(pugi::xml_node element, bool& value);
    /// A decimal or hexadecimal (0x) number from min to max, or a name.
    template <typename Integer>
    void number(pugi::xml_node element, Integer& value, int64_t min, int64_t max,
                std::initializer_list<NamedValue> names = {}) {
        value = static_cast<Integer>(parse_number(element, value, min, max, names));
    }
    /// One of the names.
    template <typename Enumeration>
    void enumerator(pugi::xml_node element, Enumeration& value, std::initializer_list<NamedValue> names) {
        value = static_cast<Enumeration>(parse_name(element, text(element), value, names));
    }
    /// Names joined by "|", or a number.
    void mask(pugi::xml_node element, DDS_Long& value, std::initializer_list<NamedValue> names);
    /// <sec> and <nanosec>. A part that is stated nowhere is 0, or infinite beside infinite seconds.
    void duration(pugi::xml_node element, DDS_Duration_t& value);
    void string(pugi::xml_node element, char*& value);
    void strings(pugi::xml_node element, DDS_StringSeq& value);
    /// Base64, or octets separated by commas, or one <element> per octet.
    void octets(pugi::xml_node element, DDS_OctetSeq& value);

  private:
    int64_t parse_number(pugi::xml_node element, int64_t old, int64_t min, int64_t max,
                         std::initializer_list<NamedValue> names);
    int64_t parse_name(pugi::xml_node element, const std::string& name, int64_t old,
                       std::initializer_list<NamedValue> names);

    const Document* document_ = nullptr;
    std::string error_;
    std::set<const DDS_Duration_t*> stated_durations_;
};

/// How one child element of a record is read.
template <typename Record>
struct Member {
    const char* name;
    void (*read)(ElementReader& reader, pugi::xml_node element, Record& record);
};

/// Reads the children of `element`, each at most once, into the record.
template <typename Record, size_t count>
void read_members(ElementReader& reader, pugi::xml_node element, Record& record,
                  const Member<Record> (&members)[count]) {
    bool seen[count] = {};
    for (const pugi::xml_node child : reader.children(element)) {
        size_t i = 0;
        while (i < count && std::string(members[i].name) != child.name())
            ++i;
        if (i == count)
            reader.fail(child, std::string("unknown element in <") + element.name() + ">");
        else if (seen[i])
            reader.fail(child, std::string("appears twice in <") + element.name() + ">");
        else
            members[i].read(reader, child, record);
        if (!reader.ok())
            return;
        seen[i] = true;
    }
}

/// `text` without blanks and line ends around it.
std::string trimmed(const std::string& text);

} // namespace meridian::qos
