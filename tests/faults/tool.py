"""The tool under attack, and what it takes of the machine."""

import os
import pathlib
import re
import resource
import time

from basics import METATRAFFIC_PORT, USER_PORT, harness, wait_until

PROTOCOL_THREAD = "rtps"
# What an attack makes the tool take ends the tool, and not the machine.
ADDRESS_SPACE = 6 << 30


class Tool(harness.Spy):
    """The tool under attack, and what it takes of the machine."""

    def __init__(self, network, *arguments, mode=None, **settings):
        super().__init__(network, *arguments, mode=mode, **settings)
        self.limit_memory()
        if not self.owns_the_ports():
            raise AssertionError("start the tool before every other participant on its host")

    def limit_memory(self):
        if harness.SLOWNESS == 1:  # sanitizers reserve more than there is
            resource.prlimit(self.pid, resource.RLIMIT_AS, (ADDRESS_SPACE, ADDRESS_SPACE))

    def wait_for_text(self, text, limit=None, start=0):
        """Waits for a line that contains the text, among many lines: each is looked at once."""
        position = start

        def found():
            nonlocal position
            while position < len(self.lines):
                position += 1
                if text in self.lines[position - 1]:
                    return True
            return False

        self.wait_for(f"a line with {text!r}", found, limit)

    def numbers(self, topic):
        """The sequence numbers of a topic's samples so far. Each line is looked at once, however many there are."""
        looked_at, numbers = self.__dict__.setdefault("_numbers", {}).get(topic, (0, []))
        end = len(self.lines)
        name = f'topic="{topic}"'
        for line in self.lines[looked_at:end]:
            if name in line:
                found = re.search(r" virtual_sn=\(0, (\d+)\)", line)
                if found:
                    numbers.append(int(found[1]))
        self._numbers[topic] = end, numbers
        return numbers

    def _proc(self, name):
        try:
            return pathlib.Path(f"/proc/{self.pid}/{name}").read_text()
        except (FileNotFoundError, ProcessLookupError):
            raise AssertionError(f"the tool has ended\n{self.story()}") from None

    def story(self):
        """The end of what it said; a storm has many lines, and long ones."""
        said = [f"  {line[:160]}" for line in self.lines[-8:]] + [f"  (error) {line[:160]}" for line in self.errors[-4:]]
        return f"{self.label} (status {self._child.poll()}) said at last:\n" + "\n".join(said)

    def alive(self):
        return self._child.poll() is None

    def _status(self, field):
        for line in self._proc("status").splitlines():
            if line.startswith(field + ":"):
                return int(line.split()[1]) * 1024
        raise AssertionError(f"the tool has ended\n{self.story()}")

    def memory(self):
        """Resident bytes."""
        return self._status("VmRSS")

    def peak(self):
        """The most resident bytes so far."""
        return self._status("VmHWM")

    def threads(self):
        """Name -> (its directory below task/), of one thread of each name."""
        found = {}
        if not self.alive():
            raise AssertionError(f"the tool has ended\n{self.story()}")
        for entry in os.listdir(f"/proc/{self.pid}/task"):
            try:
                found[self._proc(f"task/{entry}/comm").strip()] = entry
            except AssertionError:
                continue  # a thread that ended meanwhile
        return found

    def processor_time(self, thread=None):
        """Seconds that one thread or all of them ran so far."""
        if thread is not None:
            return int(self._proc(f"task/{self.threads()[thread]}/schedstat").split()[0]) / 1e9
        return sum(int(self._proc(f"task/{entry}/schedstat").split()[0])
                   for entry in os.listdir(f"/proc/{self.pid}/task")) / 1e9

    def _sockets(self):
        """The lines that /proc has of the UDP sockets at the known ports."""
        lines = [line.split() for line in self._proc("net/udp").splitlines()[1:]]
        return [fields for fields in lines if int(fields[1].split(":")[1], 16) in (METATRAFFIC_PORT, USER_PORT)]

    def owns_the_ports(self):
        own = {os.readlink(f"/proc/{self.pid}/fd/{number}") for number in os.listdir(f"/proc/{self.pid}/fd")}
        return len(self._sockets()) == 2 and all(f"socket:[{fields[9]}]" in own for fields in self._sockets())

    def queued(self):
        """Bytes that wait in its sockets."""
        return sum(int(fields[4].split(":")[1], 16) for fields in self._sockets())

    def is_at_rest(self):
        """It has read all that was sent to it, and its protocol thread waits for more."""
        if self.queued() > 0:
            return False
        state = self._proc(f"task/{self.threads()[PROTOCOL_THREAD]}/stat").rpartition(")")[2].split()[0]
        return state == "S" and self.queued() == 0

    def wait_at_rest(self, limit=30.0):
        """Waits until everything sent to it so far is dealt with; returns how long that took."""
        begin = time.monotonic()
        calm = 0
        while calm < 3:  # asleep three times in a row: no lock and no timer that happened to be waited for
            calm = calm + 1 if self.is_at_rest() else 0
            if time.monotonic() > begin + limit * harness.SLOWNESS:
                raise AssertionError(f"the tool is still busy after {limit:g} s with what it was sent")
            time.sleep(0.003)
        return time.monotonic() - begin

    def wait_for_room(self, bytes_waiting=64 * 1024, limit=60.0):
        """Waits until a storm can go on without being lost at the tool's socket."""
        end = time.monotonic() + limit * harness.SLOWNESS
        while self.queued() > bytes_waiting:
            if time.monotonic() > end:
                raise AssertionError(f"the tool did not read what it was sent for {limit:g} s")
            time.sleep(0.001)


class RawTool(Tool):
    """A tool whose output is the test's own business."""

    def __init__(self, child):
        self._child = child
        self.label, self.lines, self.errors = "ferret", [], []
        self.limit_memory()
        wait_until("its sockets", lambda: PROTOCOL_THREAD in self.threads() and self.owns_the_ports())

    def close(self):
        if self._child.poll() is None:
            self._child.kill()
        self._child.wait()
