// What "-hOutput" prints. Blanks at the ends of lines are part of the text.

#include "quixspy/quixSpyAgent.h"

namespace {

#define INDENT "                       "

const char* const kLines[] = {
    "",
    "ferret’s output is formatted as a list of lines, where each line is independent and describes a sample "
    "received.",
    "",
    "12:12:29 New writer        from 192.168.43.223  : topic=\"Circle\" type=\"ShapeType\"",
    "09:34:35 New data          from 192.168.43.223  : topic=\"Circle\" type=\"ShapeType\"",
    "",
    "In the default output, you can find the following information per line:",
    "",
    "",
    "source_timestamp   :   Timestamp that appears in the SampleInfo",
    INDENT "of each received sample. It is printed in UTC.",
    INDENT "For example: \"14:59:16\". ",
    "",
    "Info               :   It describes the received sample.",
    INDENT "- \"New writer\"/\"New reader\": a DataWriter or a DataReader",
    INDENT "was discovered for the first time.",
    "",
    INDENT "- \"Deleted writer\"/\"Deleted reader\": a DataWriter or a",
    INDENT "DataReader was explicitly deleted or lost its liveliness.",
    "",
    INDENT "- \"Updated writer\"/\"Updated reader\": a configuration",
    INDENT "parameter of a DataWriter or a DataReader has changed, such as",
    INDENT "partition, lifespan or content-filtered topic expression.",
    "",
    INDENT "- \"New data\": for keyed topics, a sample of a new instance",
    INDENT "was received. For unkeyed topics, any sample was received.",
    "",
    INDENT "- \"Modified instance\": a sample of an instance that was",
    INDENT "already known was received. Only for keyed topics.",
    "",
    INDENT "- \"Disposed instance\": an instance was disposed.",
    "",
    INDENT "- \"No writers\": an instance has no DataWriters any more.",
    INDENT "For example: \"New writer\". ",
    "",
    "Src IP             :   IPv4 address of the writer that sent",
    INDENT "the sample. It is the first IPv4 element of the unicast",
    INDENT "locators of the writer or of its participant. If there is",
    INDENT "no such element, it is 'unknown ip'.",
    INDENT "For example: \"192.168.43.223\". ",
    "",
    "Topic              :   Topic name. For discovery messages it refers to the",
    INDENT "topic of the writer or reader that was discovered.",
    INDENT "For example: \"Circle\". ",
    "",
    "Type               :   Type name. For discovery messages it refers to the",
    INDENT "type of the writer or reader that was discovered.",
    INDENT "For example: \"ShapeType\". ",
    "",
    "The following fields do not appear by default, they need to be requested by command-line arguments:",
    "",
    "Object GUID/Key    :   This information is disabled by default. To enable it,",
    INDENT "use '-showHandle'. For discovery data it is the GUID of the",
    INDENT "writer or reader. For user data it is the 12-byte instance",
    INDENT "handle, which is only shown for keyed topics.",
    INDENT "For example: \"guid=\"0x0101888C,0x46C9EF71,0xFA7ED5AE:0x80004202\"\" for discovery data. ",
    INDENT "For example: \"key=\"c317c2ca.8e3f3618.ee0e16f1.86e8f9de\"\" for user data. ",
    "",
    "Sample Identity    :   This information is disabled by default. To enable it,",
    INDENT "use '-showSampleIdentity'. It is the GUID of the writer",
    INDENT "and the sequence number that identify the sample.",
    INDENT
    "For example: \"virtual_guid=\"0x0101888C,0x46C9EF71,0xFA7ED5AE:0x80004202\" "
    "virtual_sn=\"(0, 6140280)\"\". ",
    "",
    "Related",
    "Sample Identity    :   This information is disabled by default. To enable it,",
    INDENT "use '-showSampleIdentity'. It is the identity of the",
    INDENT "sample that this sample is related to.",
    INDENT
    "For example: \"related_virtual_guid=\"0x0101888C,0x46C9EF71,0xFA7ED5AE:0x80004202\" "
    "related_virtual_sn=\"(0, 6140280)\"\". ",
    "",
    "Flags              :   This information is disabled by default. To enable it,",
    INDENT "use '-showSampleFlags'. Each letter is a flag of the sample.",
    "",
    INDENT "R  -- indicates that the sample has been redelivered",
    INDENT "by Kvo Queuing Service",
    "",
    INDENT "I  -- indicates that a response sample is not the last sample",
    INDENT "for a given request. This bit is usually set by ",
    INDENT "Meridian Repliers sending multiple responses for a request ",
    "",
    INDENT "P  -- indicates if a sample must be broadcast by one",
    INDENT "Kvo Queuing Service replica to other replicas",
    "",
    INDENT "L  -- indicates that a response sample is the last sample ",
    INDENT "in a SharedReaderQueue for a QueueConsumer DataReader",
    INDENT "For example: \"flags=\"LR\"\". ",
    "",
};

#undef INDENT

} // namespace

void QuixSpyAgent::print_help_output() {
    for (const char* const line : kLines)
        output().print("%s\n", line);
}
