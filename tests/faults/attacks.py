"""The packets of each attack, so that it is the same alone and among the others. Functions of one writer return submessages
for one datagram of at most 65 KB; those of an application send in its name."""

import struct

import forge
import packets
from basics import MIB

LARGEST_SAMPLE = 64 * MIB
FAR = 1 << 40
EVERY_BUILTIN_ENDPOINT = forge.BUILTIN_ENDPOINTS | forge.TYPE_LOOKUP_ENDPOINTS
NUMBER = b"\0\1\0\0\7\0\0\0"  # a sample with one 32-bit number


# One datagram.

def fragment_of_a_large_sample(writer, number=1):
    return [forge.data_frag(writer, number, 1, bytes(64), LARGEST_SAMPLE)]


def fragment_with_a_gap_over_it(writer):
    return [*fragment_of_a_large_sample(writer), forge.gap(writer, 1, 2)]


def gaps_far_ahead(writer, count=2000):
    """Each over 4,096 samples."""
    return [forge.gap(writer, 10000 * number, 10000 * number + 4096) for number in range(1, count + 1)]


def gaps_with_bits(writer, count=1000):
    """Each names every second one of 256 samples."""
    return [forge.gap(writer, 10000 * number, 10000 * number + 1, range(10000 * number + 1, 10000 * number + 256, 2))
            for number in range(1, count + 1)]


def fragments_of_alternating_sample_sizes(writer, count=1500):
    return [forge.data_frag(writer, 1, 1, b"1234", 8 if number % 2 else LARGEST_SAMPLE) for number in range(count)]


def fragments_of_many_samples(writer, count=1500):
    return [forge.data_frag(writer, number, 1, b"1234", LARGEST_SAMPLE) for number in range(1, count + 1)]


def heartbeats_ever_further_ahead(writer, next_count, count=1900):
    return [forge.heartbeat(writer, 1, number << 20, next_count()) for number in range(1, count + 1)]


def acknacks(next_count, count, most=100):
    """Each asks for all that the tool told of its readers."""
    return [forge.acknack(forge.reader_of(forge.SUBSCRIPTIONS), forge.SUBSCRIPTIONS, 1, range(1, most + 1), next_count())
            for _ in range(count)]


def heartbeats_with_liveliness(writer, next_count, count=1900):
    return [forge.submessage(forge.HEARTBEAT, 4, forge.heartbeat(writer, 1, 0, next_count())[4:]) for _ in range(count)]


def fragments_of_one_octet(writer, first):
    """60,000 of a sample of 1,000,000; all but the second are there in the end."""
    begin = [forge.data_frag(writer, 1, 1, b"1", 1000000, 1)] if first == 3 else []
    return [*begin, forge.data_frag(writer, 1, first, bytes(60000), 1000000, 1, 60000)]


def fragment_heartbeats(writer, next_count, count=1900):
    """They name no more than the first fragment."""
    return [forge.heartbeat_frag(writer, 1, 1, next_count()) for _ in range(count)]


def samples_of_unknown_writers(first, count=2200):
    return [forge.data(writer_entity(number), 1) for number in range(first, first + count)]


def samples_with_chosen_keys(writer, first, count):
    """Samples from number first + 1 on, whose key hashes fall into one bucket of a table without a seed."""
    result = []
    for low in range(first, first + count):
        high = (low * 0x9E3779B97F4A7C15) & (1 << 64) - 1 ^ 0x5555
        result.append(forge.data(writer, low + 1, NUMBER, inline=[forge.key_hash(struct.pack("<QQ", high, low))]))
    return result


# Publications of one application; every batch has entities of its own where it says from which one on.

def writer_entity(number):
    return 0x00000003 | (number + 1) << 8


def _publications(application, first, count, topic, more_of):
    return (forge.endpoint(application.prefix, writer_entity(number), topic, "fault::Type", more=more_of(number))
            for number in range(first, first + count))


def writers_with_a_lease(application, first, count):
    return _publications(application, first, count, "Leased",
                         lambda number: [(forge.LIVELINESS, struct.pack("<IiI", 0, 100, 0))])


def types_of_one_topic(application, count):
    return (forge.endpoint(application.prefix, writer_entity(number), "Same", f"fault::T{number}") for number in range(count))


def type_objects(application, first, count):
    """Whole types of the older form; they are larger than the tool takes."""
    return _publications(application, first, count, "Objects",
                         lambda number: [(forge.TYPE_OBJECT, struct.pack("<I", number) + bytes(59000))])


def many_endpoints(application, first, count, topic="Many"):
    return _publications(application, first, count, topic, lambda number: ())


def empty_partition_names(application, first, count):
    value = struct.pack("<I", 14900) + bytes(4 * 14900)
    return _publications(application, first, count, "Wide", lambda number: [(forge.PARTITION_NAMES, value)])


def properties(application, first, count):
    value = struct.pack("<I", 3700) + (forge.text("a") + forge.text("b")) * 3700
    return _publications(application, first, count, "Wide", lambda number: [(packets.PROPERTIES, value)])


def locators(application, first, count):
    value = [(forge.UNICAST, forge.locator(f"10.1.{number >> 8}.{number & 255}", 7411)) for number in range(2100)]
    return _publications(application, first, count, "Wide", lambda number: value)


def unknown_types(application, first, count):
    """Each is another type of the same name, which the application never tells of."""
    return _publications(application, first, count, "Unknown",
                         lambda number: [forge.type_information(b"unknown..." + number.to_bytes(4, "big"), 200)])


def oversized_types(application, first, count):
    return _publications(application, first, count, "Large",
                         lambda number: [forge.type_information(b"oversized." + number.to_bytes(4, "big"), 1000000)])


def foreign_participants(application, first, count, entity=0x00000103):
    """One endpoint, each time as if it were of another participant."""
    return (forge.endpoint(application.prefix, entity, "Moves", "fault::Type",
                           participant_prefix=b"moved..." + number.to_bytes(4, "big")) for number in range(first, first + count))


# Participants.

def participants_that_stay(application, tool, first, count):
    """They have an infinite lease and are never heard of again."""
    for number in range(first, first + count):
        if number % 50 == 0:
            tool.wait_for_room()
        application.announce(prefix=b"\x01\x55stay.." + number.to_bytes(4, "big"), lease=forge.LEASE_FOR_EVER)


def changes_of_a_participant(application, count=250):
    """In one datagram; each announces another address."""
    return [forge.data(packets.PARTICIPANTS, 1000 + number,
                       forge.participant(application.prefix, [application.locator()], vendor=application.vendor,
                                         default=[forge.locator("127.0.0.1", 20000 + number)], builtin=application.builtin))
            for number in range(count)]


def participants_at_absent_addresses(application, count=150):
    for number in range(count):
        application.announce(prefix=b"\x01\x55absent" + number.to_bytes(4, "big"),
                             metatraffic=[forge.locator(f"10.77.0.{50 + number}", 7410)])


# What is said of the endpoints of others.

def dispose_of(application, guid):
    key = forge.listed([(packets.ENDPOINT_GUID, guid)])
    application.write(forge.PUBLICATIONS, key, key=True,
                      inline=[forge.key_hash(guid), forge.status(forge.DISPOSED | forge.UNREGISTERED)])
    application.wait_until_read(forge.PUBLICATIONS)


def announce_as_its_own(application, prefix, entity, topic, type_name, more=()):
    application.write(forge.PUBLICATIONS, forge.endpoint(prefix, entity, topic, type_name, more=more))
    application.wait_until_read(forge.PUBLICATIONS)
