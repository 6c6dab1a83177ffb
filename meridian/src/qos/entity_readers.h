#pragma once

#include "meridian/qos.h"
#include "qos/element_reader.h"

namespace meridian::qos {

/// Reads the policies that are children of `element` into the QoS of one entity; what the element does not
/// mention stays. Failures are the reader's.
void read_qos(ElementReader& reader, pugi::xml_node element, DDS_DomainParticipantQos& qos);
void read_qos(ElementReader& reader, pugi::xml_node element, DDS_TopicQos& qos);
void read_qos(ElementReader& reader, pugi::xml_node element, DDS_SubscriberQos& qos);
void read_qos(ElementReader& reader, pugi::xml_node element, DDS_DataReaderQos& qos);

} // namespace meridian::qos
