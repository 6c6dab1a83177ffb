#pragma once

// One function per policy: the members that its element may hold, by the names of DDS-XML.

#include "meridian/qos.h"
#include "qos/element_reader.h"

namespace meridian::qos {

void read_policy(ElementReader& reader, pugi::xml_node element, DDS_UserDataQosPolicy& policy);
void read_policy(ElementReader& reader, pugi::xml_node element, DDS_TopicDataQosPolicy& policy);
void read_policy(ElementReader& reader, pugi::xml_node element, DDS_GroupDataQosPolicy& policy);
void read_policy(ElementReader& reader, pugi::xml_node element, DDS_EntityFactoryQosPolicy& policy);
void read_policy(ElementReader& reader, pugi::xml_node element, DDS_DurabilityQosPolicy& policy);
void read_policy(ElementReader& reader, pugi::xml_node element, DDS_DurabilityServiceQosPolicy& policy);
void read_policy(ElementReader& reader, pugi::xml_node element, DDS_DeadlineQosPolicy& policy);
void read_policy(ElementReader& reader, pugi::xml_node element, DDS_LatencyBudgetQosPolicy& policy);
void read_policy(ElementReader& reader, pugi::xml_node element, DDS_LivelinessQosPolicy& policy);
void read_policy(ElementReader& reader, pugi::xml_node element, DDS_ReliabilityQosPolicy& policy);
void read_policy(ElementReader& reader, pugi::xml_node element, DDS_OwnershipQosPolicy& policy);
void read_policy(ElementReader& reader, pugi::xml_node element, DDS_DestinationOrderQosPolicy& policy);
void read_policy(ElementReader& reader, pugi::xml_node element, DDS_PresentationQosPolicy& policy);
void read_policy(ElementReader& reader, pugi::xml_node element, DDS_HistoryQosPolicy& policy);
void read_policy(ElementReader& reader, pugi::xml_node element, DDS_ResourceLimitsQosPolicy& policy);
void read_policy(ElementReader& reader, pugi::xml_node element, DDS_PartitionQosPolicy& policy);
void read_policy(ElementReader& reader, pugi::xml_node element, DDS_TimeBasedFilterQosPolicy& policy);
void read_policy(ElementReader& reader, pugi::xml_node element, DDS_ReaderDataLifecycleQosPolicy& policy);
void read_policy(ElementReader& reader, pugi::xml_node element, DDS_TransportPriorityQosPolicy& policy);
void read_policy(ElementReader& reader, pugi::xml_node element, DDS_LifespanQosPolicy& policy);
void read_policy(ElementReader& reader, pugi::xml_node element, DDS_DataRepresentationQosPolicy& policy);
void read_policy(ElementReader& reader, pugi::xml_node element,
                 DDS_TypeConsistencyEnforcementQosPolicy& policy);
void read_policy(ElementReader& reader, pugi::xml_node element, DDS_EntityNameQosPolicy& policy);
void read_policy(ElementReader& reader, pugi::xml_node element, DDS_PropertyQosPolicy& policy);
void read_policy(ElementReader& reader, pugi::xml_node element, DDS_WireProtocolQosPolicy& policy);
void read_policy(ElementReader& reader, pugi::xml_node element, DDS_TransportBuiltinQosPolicy& policy);
void read_policy(ElementReader& reader, pugi::xml_node element, DDS_DiscoveryQosPolicy& policy);
void read_policy(ElementReader& reader, pugi::xml_node element, DDS_DiscoveryConfigQosPolicy& policy);
void read_policy(ElementReader& reader, pugi::xml_node element,
                 DDS_DomainParticipantResourceLimitsQosPolicy& policy);
void read_policy(ElementReader& reader, pugi::xml_node element, DDS_ReceiverPoolQosPolicy& policy);
void read_policy(ElementReader& reader, pugi::xml_node element,
                 DDS_DataReaderResourceLimitsQosPolicy& policy);

} // namespace meridian::qos
