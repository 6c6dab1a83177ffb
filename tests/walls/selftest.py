#!/usr/bin/env python3
"""Shows that every rule of check_walls.py and check_format.py can fail, and that what is allowed passes."""

import pathlib
import shutil
import sys
import tempfile
import unittest

sys.path.insert(0, str(pathlib.Path(__file__).resolve().parent))
sys.dont_write_bytecode = True
import check_format  # noqa: E402
import check_walls  # noqa: E402

HOUSE = {
    "meridian/include/meridian/a.h": "#include <string>\n",
    "meridian/src/platform/mutex.h": "#include <pthread.h>\n#include <time.h>\n#include <thread>\n",
    "meridian/src/platform/file.cpp": '#include <fstream>\nauto home = getenv("HOME");\n',
    "meridian/src/rtps/wire/types.h": "#include <array>\nconstexpr VendorId kFastDds{{1, 15}};\nconstexpr VendorId kOwnVendorId{{1, 126}};\n",
    "meridian/src/rtps/protocol/makers.cpp": "bool is_first = data.vendor == kFastDds; // not of kOpenDds\n",
    "meridian/src/rtps/protocol/reader.h": '#include "rtps/wire/types.h"\nbool is_own = data.vendor == kOwnVendorId;\n',
    "meridian/src/rtps/net/socket.h": '#include <sys/socket.h>\n#include "rtps/protocol/reader.h"\n',
    "meridian/src/dcps/entities/factory.cpp": '#include "meridian/a.h"\n#include "discovery/d.h"\n#include "platform/mutex.h"\n',
    "meridian/src/discovery/d.h": '#include "rtps/net/socket.h"\n',
    "meridian/src/qos/q.h": "",
    "meridian/src/types/data/d.h": '#include "types/model/m.h"\n',
    "meridian/src/types/lookup/l.h": '#include "rtps/net/socket.h"\n#include "types/network/n.h"\n',
    "meridian/src/types/model/m.h": "",
    "meridian/src/types/network/n.h": "",
    "agent/agent.h": '#include "meridian/a.h"\n',
    "srcCxx/quixspy/spy.cpp": '#include "agent/agent.h"\n#include "quixspy/spy.h"\n#include <signal.h>\n',
    "srcCxx/quixspy/spy.h": "",
    "tests/interop/peers/p.cpp": "#include <dds/dds.h>\n",
    "tests/unit/wire/w.cpp": '#include "rtps/wire/types.h"\n',
}

BROKEN = [
    ("agent/bad.h", '#include "platform/mutex.h"\n', "public headers"),
    ("agent/bad.h", '#include "../meridian/src/qos/q.h"\n', "public headers"),
    ("agent/bad.h", '#include "quixspy/spy.h"\n', "nothing of the spy"),
    ("srcCxx/quixspy/bad.cpp", '  #  include "rtps/wire/types.h"\n', "public headers"),
    ("meridian/src/dcps/reader/bad.cpp", '#include "agent/agent.h"\n', "nothing of the tool"),
    ("meridian/src/dcps/reader/bad.cpp", '#include "quixspy/spy.h"\n', "nothing of the tool"),
    ("meridian/src/dcps/reader/bad.cpp", "#include <unistd.h>\n", "touch the system"),
    ("meridian/src/dcps/delivery/bad.cpp", '#include "dcps/entities/factory.cpp"\n', "dcps/delivery may not include dcps/entities"),
    ("meridian/src/dcps/bad.cpp", "#include <string>\n", "without a place"),
    ("meridian/src/qos/bad.cpp", "#include <ctime>\n", "touch the system"),
    ("meridian/src/qos/bad.cpp", '#include "rtps/net/socket.h"\n', "qos may not include rtps/net"),
    ("meridian/src/types/bad.cpp", "#include <string>\n", "without a place"),
    ("meridian/src/types/data/bad.cpp", '#include "types/network/n.h"\n', "types/data may not include types/network"),
    ("meridian/src/types/documents/bad.cpp", '#include "qos/q.h"\n', "types/documents may not include qos"),
    ("meridian/src/types/network/bad.cpp", '#include "types/lookup/l.h"\n', "types/network may not include types/lookup"),
    ("meridian/src/rtps/wire/bad.h", '#include "rtps/protocol/reader.h"\n', "rtps/wire may not include rtps/protocol"),
    ("meridian/src/rtps/wire/bad.h", '#include "platform/mutex.h"\n', "rtps/wire may not include platform"),
    ("meridian/src/rtps/wire/bad.h", '#include "meridian/a.h"\n', "nothing of the public interface"),
    ("meridian/src/rtps/protocol/bad.cpp", '#include "rtps/net/socket.h"\n', "rtps/protocol may not include rtps/net"),
    ("meridian/src/rtps/protocol/bad.cpp", "#include <poll.h>\n", "touch the system"),
    ("meridian/src/rtps/protocol/bad.cpp", "auto t = std::chrono::steady_clock::now();\n", "asks the system for time"),
    ("meridian/src/rtps/protocol/bad.cpp", "#include <mutex>\n", "touch the system"),
    ("meridian/src/dcps/reader/bad.h", "#include <thread>\n", "touch the system"),
    ("meridian/src/types/documents/bad.cpp", "#include <fstream>\n", "touch the system"),
    ("meridian/src/qos/bad.cpp", "#include <filesystem>\n", "touch the system"),
    ("meridian/src/qos/bad.cpp", 'auto home = std::getenv("HOME");\n', "asks the system"),
    ("meridian/src/discovery/bad.cpp", "std::this_thread::sleep_for(1ms);\n", "asks the system"),
    ("meridian/src/rtps/net/bad.cpp", '#include "discovery/d.h"\n', "rtps/net may not include discovery"),
    ("meridian/src/platform/bad.cpp", '#include "rtps/wire/types.h"\n', "platform may not include rtps/wire"),
    ("meridian/src/new/bad.cpp", "#include <string>\n", "without a place"),
    ("meridian/include/meridian/bad.h", '#include "dcps/entities/factory.cpp"\n', "public headers only"),
    ("meridian/include/meridian/bad.h", "#include <pthread.h>\n", "system header"),
    ("meridian/src/rtps/net/bad.cpp", "#include <dds/dds.h>\n", "another maker's"),
    ("srcCxx/quixspy/bad.cpp", "#include <fastdds/dds/log/Log.hpp>\n", "another maker's"),
    ("bench/bad.cpp", "#include <fastcdr/Cdr.h>\n", "another maker's"),
    ("meridian/src/rtps/protocol/bad.cpp", "bool is_first = data.vendor == kFastDds;\n", "not for a quirk"),
    ("meridian/src/types/data/bad.cpp", "return vendor == rtps::VendorId{{1, 3}};\n", "not for a quirk"),
    ("tests/unit/bad.cpp", "// Nobody hears it.\n", "name the application"),
]


class Walls(unittest.TestCase):
    def build(self, folder, *more):
        for name, text in [*HOUSE.items(), *more]:
            path = pathlib.Path(folder, name)
            path.parent.mkdir(parents=True, exist_ok=True)
            path.write_text(text)
        return check_walls.check(folder)[0]

    def test_what_is_allowed_passes(self):
        with tempfile.TemporaryDirectory() as folder:
            self.assertEqual(self.build(folder), [])

    def test_every_rule_can_fail(self):
        for name, text, reason in BROKEN:
            with self.subTest(f"{name}: {text.strip()}"), tempfile.TemporaryDirectory() as folder:
                errors = self.build(folder, (name, text))
                self.assertEqual(len(errors), 1, errors)
                self.assertIn(reason, errors[0])
                self.assertTrue(errors[0].startswith(f"{name}:1:"), errors)

    def test_exceptions_are_for_files_that_need_them(self):
        with tempfile.TemporaryDirectory() as folder:
            file = "meridian/src/dcps/reader/listener_link.h"
            self.assertEqual(self.build(folder, (file, "#include <thread>\n")), [])
            self.assertEqual(len(self.build(folder, (file, "#include <mutex>\n"))), 1)
        used = set(check_walls.EXCEPTIONS)
        self.assertEqual(check_walls.needless(used), [])
        used.remove(("listener_link.h", "thread"))
        self.assertEqual(len(check_walls.needless(used)), 1)


class Format(unittest.TestCase):
    def test_a_file_out_of_format_is_told(self):
        tool = check_format.find_tool()
        if tool is None:
            self.skipTest(f"clang-format {check_format.VERSION} is not installed")
        with tempfile.TemporaryDirectory() as folder:
            shutil.copy(pathlib.Path(__file__).resolve().parents[2] / ".clang-format", folder)
            file = pathlib.Path(folder, "agent/a.cpp")
            file.parent.mkdir()
            file.write_text("int f() {\n    return 1;\n}\n")
            self.assertEqual(check_format.check(folder, tool), ("", 1))
            file.write_text("int f() { return 1; }\n")
            told, _ = check_format.check(folder, tool)
            self.assertIn("a.cpp:1:", told)


if __name__ == "__main__":
    unittest.main()
