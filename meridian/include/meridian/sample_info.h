#pragma once

// What a reader says of each sample (OMG DDS 1.4, 2.2.2.5.5).

#include "meridian/base.h"
#include "meridian/guid.h"
#include "meridian/sequence.h"
#include "meridian/time.h"

using DDS_SampleStateMask = DDS_UnsignedLong;
using DDS_ViewStateMask = DDS_UnsignedLong;
using DDS_InstanceStateMask = DDS_UnsignedLong;

constexpr DDS_SampleStateMask DDS_READ_SAMPLE_STATE = 1;
constexpr DDS_SampleStateMask DDS_NOT_READ_SAMPLE_STATE = 2;
constexpr DDS_SampleStateMask DDS_ANY_SAMPLE_STATE = 0xffff;
constexpr DDS_ViewStateMask DDS_NEW_VIEW_STATE = 1;
constexpr DDS_ViewStateMask DDS_NOT_NEW_VIEW_STATE = 2;
constexpr DDS_ViewStateMask DDS_ANY_VIEW_STATE = 0xffff;
constexpr DDS_InstanceStateMask DDS_ALIVE_INSTANCE_STATE = 1;
constexpr DDS_InstanceStateMask DDS_NOT_ALIVE_DISPOSED_INSTANCE_STATE = 2;
constexpr DDS_InstanceStateMask DDS_NOT_ALIVE_NO_WRITERS_INSTANCE_STATE = 4;
constexpr DDS_InstanceStateMask DDS_ANY_INSTANCE_STATE = 0xffff;

struct DDS_SampleIdentity_t {
    DDS_GUID_t writer_guid{};
    DDS_SequenceNumber_t sequence_number = DDS_SEQUENCE_NUMBER_UNKNOWN;
};

struct DDS_SampleInfo {
    DDS_SampleStateMask sample_state = DDS_NOT_READ_SAMPLE_STATE;
    DDS_ViewStateMask view_state = DDS_NEW_VIEW_STATE;
    DDS_InstanceStateMask instance_state = DDS_ALIVE_INSTANCE_STATE;
    DDS_Time_t source_timestamp = DDS_TIME_INVALID;
    DDS_InstanceHandle_t instance_handle{};
    DDS_InstanceHandle_t publication_handle{}; // key hash: the writer's GUID in network order
    DDS_Boolean valid_data = false;
    DDS_SampleIdentity_t sample_identity; // of the original writer
    DDS_SampleIdentity_t related_sample_identity;
    DDS_UnsignedLong flag = 0;
};
using DDS_SampleInfoSeq = DDS_Sequence<DDS_SampleInfo>;
