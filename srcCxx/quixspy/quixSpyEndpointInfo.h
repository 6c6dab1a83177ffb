#pragma once

// The registry of remote endpoints: what is known of each writer and reader, by GUID, in the order in which
// they were first seen. No lock of its own: one thread at a time. Queries hand out deep copies.

#include <map>

#include "meridian/guid.h"
#include "meridian/qos.h"
#include "meridian/sequence.h"
#include "quixspy/quixSpyList.h"

class QuixAgentOutput;

/// A GUID as four words; all zero means no endpoint. The low byte of the fourth word is the entity kind.
using RtpsGuid = PRESGuid;

bool RtpsGuid_equals(const RtpsGuid& a, const RtpsGuid& b);
bool RtpsGuid_isUnknown(const RtpsGuid& guid);

/// Characters of an address text, with its terminator.
constexpr int QUIXSPY_IP_SIZE = 16;

/// What is known of one endpoint. A plain record: all zero is empty. Strings are owned (DDS_String) and may
/// be null; the owner of a record calls finalize when done with it.
struct QuixSpyEndpointInfo {
    RtpsGuid guid;
    char* topicName;
    char* typeName;
    char ip[QUIXSPY_IP_SIZE];   // dotted decimal, or "unknown ip"
    char* name;                 // "role:name", or the one of them that is known
    char* participantPartition; // names joined by ","; null without partitions
    char* endpointPartition;    // likewise, of the publisher or subscriber

    /// Frees the strings and clears the address; the GUID stays. Safe to repeat.
    void finalize();
    /// Deep copy into a record that holds nothing. Stops, with a message, at the first member that cannot be
    /// copied: the later ones stay empty.
    bool copy_from(const QuixSpyEndpointInfo& source, QuixAgentOutput& output);
};

/// A record that holds nothing at first and gives back its strings on every way out.
struct QuixSpyLocalEndpointInfo : QuixSpyEndpointInfo {
    QuixSpyLocalEndpointInfo() : QuixSpyEndpointInfo{} {}
    QuixSpyLocalEndpointInfo(const QuixSpyLocalEndpointInfo&) = delete;
    QuixSpyLocalEndpointInfo& operator=(const QuixSpyLocalEndpointInfo&) = delete;
    ~QuixSpyLocalEndpointInfo() { finalize(); }
};

struct QuixSpyEndpointInfoNode : QuixSpyListLink<QuixSpyEndpointInfoNode> {
    QuixSpyEndpointInfo info;
};

/// Holds no two nodes of one GUID and none of the unknown GUID. Owns its nodes. Neither copied nor moved:
/// nodes point back at it.
class QuixSpyEndpointInfoList : public QuixSpyList<QuixSpyEndpointInfoNode> {
  public:
    /// Messages go to the output, which is not owned.
    explicit QuixSpyEndpointInfoList(QuixAgentOutput& output)
        : QuixSpyList<QuixSpyEndpointInfoNode>{}, output_(output) {}
    QuixSpyEndpointInfoList(const QuixSpyEndpointInfoList&) = delete;
    QuixSpyEndpointInfoList& operator=(const QuixSpyEndpointInfoList&) = delete;
    ~QuixSpyEndpointInfoList();

    /// Replaces what is known of the endpoint, or appends it, and copies the result into `out` (a record that
    /// holds nothing; the caller's). False, with a message, when nothing is stored: for the unknown GUID, or
    /// without memory for a node. A member that cannot be stored costs itself and those after it, not the
    /// record. topicName and typeName may be null.
    bool assert_node(QuixSpyEndpointInfo& out, const RtpsGuid& guid, const char* ip, const char* topicName,
                     const char* typeName, const DDS_EntityNameQosPolicy& entityName,
                     const DDS_StringSeq& endpointPartitions, const DDS_StringSeq& participantPartitions);
    /// Null when the endpoint is not known. Valid until the node is removed.
    QuixSpyEndpointInfoNode* find_node(const RtpsGuid& guid) const;
    /// Unlinks and frees.
    void remove_node(QuixSpyEndpointInfoNode* node);

  private:
    struct Earlier {
        bool operator()(const RtpsGuid& a, const RtpsGuid& b) const;
    };

    QuixAgentOutput& output_;
    std::map<RtpsGuid, QuixSpyEndpointInfoNode*, Earlier> byGuid_;
};
