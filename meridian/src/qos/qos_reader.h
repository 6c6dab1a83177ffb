#pragma once

// The QoS of an entity from XML. One QosReader reads all elements of one entity's QoS, base first: what a
// later element says replaces what an earlier one said, leaf by leaf, and a list replaces a list.

#include <set>

#include "meridian/qos.h"
#include "xml/element_reader.h"

namespace meridian::qos {

class QosReader : public xml::ElementReader {
  public:
    /// Reads the policies that are children of `element`, each at most once; what the element does not
    /// mention stays. For the QoS of participants, topics, subscribers and readers.
    template <typename Qos>
    void read(pugi::xml_node element, Qos& qos);

    /// To read the QoS of another entity.
    void forget_durations() { stated_durations_.clear(); }

    /// <sec> and <nanosec>. A part that is stated nowhere is 0, or infinite beside infinite seconds.
    void duration(pugi::xml_node element, DDS_Duration_t& value);

  private:
    std::set<const DDS_Duration_t*> stated_durations_;
};

} // namespace meridian::qos
