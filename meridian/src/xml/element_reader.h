#pragma once

// From XML elements to values, with one message for the first thing that is wrong.

#include <cstdint>
#include <initializer_list>
#include <pugixml.hpp>
#include <string>
#include <vector>

#include "xml/document.h"
#include "xml/named_values.h"

namespace meridian::xml {

class ElementReader {
  public:
    /// The document of the elements that are read next; must outlive their reading.
    void set_document(const Document& document) { document_ = &document; }

    /// False after the first failure; what is read after it is of no use.
    bool ok() const { return error_.empty(); }
    const std::string& error() const { return error_; }
    /// Keeps the first message.
    void fail(pugi::xml_node element, const std::string& reason);

    /// Fails for an element that has no meaning in its place.
    void fail_unknown(pugi::xml_node element, const std::string& place);
    /// When the first failure is an unknown element: its message, and the reader can go on. Else nothing.
    std::string forgive_unknown();

    /// Fails for attributes that no list holds, and for those that appear twice. Namespaces are
    /// allowed.
    void check_attributes(pugi::xml_node element, std::initializer_list<const char*> known,
                          std::initializer_list<const char*> also_known = {});

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
    void number(pugi::xml_node element, Integer& value, int64_t min, int64_t max, Names names = {}) {
        value = static_cast<Integer>(parse_number(element, value, min, max, names));
    }
    /// One of the names.
    template <typename Enumeration>
    void enumerator(pugi::xml_node element, Enumeration& value, Names names) {
        value = static_cast<Enumeration>(parse_name(element, text(element), value, names));
    }
    /// Names joined by "|", or a number.
    void mask(pugi::xml_node element, int32_t& value, Names names);

  private:
    int64_t parse_number(pugi::xml_node element, int64_t old, int64_t min, int64_t max, Names names);
    int64_t parse_name(pugi::xml_node element, const std::string& name, int64_t old, Names names);

    const Document* document_ = nullptr;
    std::string error_;
    bool is_unknown_ = false; // the element that error_ names
};

} // namespace meridian::xml
