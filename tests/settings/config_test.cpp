#include "korinimage/config.h"

#include <gtest/gtest.h>

#include <atomic>
#include <chrono>
#include <climits>
#include <clocale>
#include <limits>
#include <map>
#include <thread>
#include <vector>

#include "platform/atomic_file.h"
#include "platform/text.h"
#include "settings/settings_file.h"
#include "support/fault_at.h"

namespace korin {
namespace {

using platform::Call;
using platform::Fault;
using test::Contents;
using test::SettingsFile;

TEST_F(SettingsFile, ValuesComeBackFromTheFile) {
  using Wide = std::wstring;
  const std::vector<Wide> texts = {L"",
                                   L"plain",
                                   L"D:\\new\\100%25 sure",
                                   L" blanks ",
                                   L"\"quoted\"",
                                   L"\"",
                                   L"line\r\nbreak\ttab\x7F",
                                   L"; not a comment",
                                   L"[no section]",
                                   L"<<<END",
                                   L"a = b",
                                   L"caf\u00E9 \u6620\u50CF \U0001F52D",
                                   Wide(L"with \0 null", 11),
                                   Wide(L"/disk/\xDCFF\xDCC3 end%41"),
                                   L"%"};
  const std::vector<std::string> names = {
      "", "k", "a=b", "[x]", " key ", "; key", "100%", "n\nl", "\xC3\xA9t\xC3\xA9"};
  std::map<std::pair<std::string, std::string>, std::wstring> values;
  for (const Wide& text : texts) values[{"Texts", "t" + std::to_string(values.size())}] = text;
  for (const std::string& section : names) {
    for (const std::string& key : names) {
      values[{section, key}] = platform::FromUtf8(section + "/" + key);
    }
  }
  constexpr std::int64_t kMost = std::numeric_limits<std::int64_t>::max();
  const auto config = Open();
  for (const auto& [name, value] : values) config->WriteString(name.first, name.second, value);
  config->WriteInt64("Numbers", "min", -kMost - 1);
  config->WriteInt64("Numbers", "max", kMost);
  const auto again = Open();
  for (const auto& [name, value] : values) {
    EXPECT_EQ(again->ReadString(name.first, name.second, L"absent"), value)
        << name.first << ' ' << name.second;
  }
  EXPECT_EQ(again->ReadInt64("Numbers", "min", 0), -kMost - 1);
  EXPECT_EQ(again->ReadInt("Numbers", "min", 0), INT_MIN);
  EXPECT_EQ(again->ReadInt("Numbers", "max", 0), INT_MAX);
  EXPECT_EQ(Leftovers(), 0);

  config->DeleteValue("Texts", "t1");
  config->DeleteValue("Texts", "never");
  EXPECT_EQ(Open()->ReadString("Texts", "t1", L"absent"), L"absent");
}

TEST_F(SettingsFile, ValuesTypedByHand) {
  Put("\xEF\xBB\xBFtop = 1\r\n"
      "[vmmanager]\r\nBlockSize=64\r\n  MemoryRatio  =  +70 \r\nFar = 99999999999999999999\r\n"
      "Low = -99999999999999999999\r\nHalf = 12x\r\nHex = 0x10\r\nWords = seven\r\nNone =\r\n"
      "VMDrive = \"D:\\swap files\\100%\"\r\nQuotedNumber = \" 5 \"\r\nLatin = caf\xE9\r\n"
      "Ratio = 12.5\r\nComma = 12,5\r\nExp = -1e3\r\nHuge = 1e999\r\nNan = nan\r\nInf = inf\r\n"
      "a=YES\r\nb=off\r\nc=True\r\nd=0\r\ne=2\r\nf=On\r\nSign=+-5\r\nminus=-\r\n");
  // A locale with a decimal comma must change nothing.
  const std::string before = std::setlocale(LC_ALL, nullptr);
  std::setlocale(LC_ALL, "de_DE.UTF-8");
  const auto config = Open();
  EXPECT_EQ(config->ReadInt("", "TOP", -1), 1);
  const std::map<std::string, int> numbers = {
      {"BlockSize", 64},   {"MemoryRatio", 70}, {"Far", INT_MAX}, {"Low", INT_MIN},
      {"QuotedNumber", 5}, {"Half", -1},        {"Hex", -1},      {"Words", -1},
      {"None", -1},        {"Absent", -1},      {"Ratio", -1},    {"Sign", -1},
      {"minus", -1}};
  for (const auto& [key, value] : numbers) {
    EXPECT_EQ(config->ReadInt("VMManager", key, -1), value) << key;
  }
  const std::map<std::string, double> reals = {{"Ratio", 12.5}, {"Exp", -1000.0}, {"Comma", 0.25},
                                               {"Huge", 0.25},  {"Nan", 0.25},    {"Inf", 0.25},
                                               {"None", 0.25},  {"Hex", 0.25}};
  for (const auto& [key, value] : reals) {
    EXPECT_EQ(config->ReadDouble("VMManager", key, 0.25), value) << key;
  }
  for (const bool fallback : {true, false}) {
    const std::map<std::string, bool> flags = {{"a", true},  {"b", false}, {"c", true},
                                               {"d", false}, {"f", true},  {"e", fallback}};
    for (const auto& [key, value] : flags) {
      EXPECT_EQ(config->ReadBool("VMManager", key, fallback), value) << key;
    }
  }
  EXPECT_EQ(config->ReadString("VMManager", "VMDrive", L""), L"D:\\swap files\\100%");
  EXPECT_EQ(config->ReadString("VMManager", "Latin", L""), std::wstring(L"caf\xDCE9"));
  std::setlocale(LC_ALL, before.c_str());
}

TEST_F(SettingsFile, WritingKeepsWhatPeopleWrote) {
  Put("; my settings\n\n; about memory\n[VMManager]\n; one half\nMemoryRatio = 50\n"
      "a stray line\n[Other]\nx = 1\n\n;VMDrive = /scratch\n; the end\n");
  Open()->WriteInt("VMManager", "MemoryRatio", 60);
  Open()->WriteInt("New", "y", 2);
  const std::string once = Contents(file);
  for (const char* part :
       {"; my settings\n", "; about memory\n[VMManager]", "; one half\n", "MemoryRatio = 60\n",
        "; a stray line\n", "x = 1\n", "[New]\ny = 2\n", "\n;VMDrive = /scratch\n; the end\n"}) {
    EXPECT_NE(once.find(part), once.npos) << part << "missing in\n" << once;
  }
  EXPECT_LT(once.find("[VMManager]"), once.find("[Other]"));
  for (int i = 3; i < 6; ++i) Open()->WriteInt("New", "y", i);
  Open()->WriteInt("New", "y", 2);
  EXPECT_EQ(Contents(file), once) << "nothing piles up";
}

// It must not be taken for the mark of an encoding when it comes to stand first.
TEST_F(SettingsFile, ANameThatBeginsLikeAMarkStaysWhole) {
  Put(" \xEF\xBB\xBF"
      "a = 1\n");
  for (int i = 0; i < 3; ++i) {
    Open()->WriteInt("s", "b", i);
    EXPECT_EQ(Open()->ReadInt("",
                              "\xEF\xBB\xBF"
                              "a",
                              0),
              1)
        << i;
    EXPECT_EQ(Open()->ReadInt("", "a", 0), 0) << i;
  }
}

TEST_F(SettingsFile, ReadingAndDeletingMakeNoFile) {
  const auto config = Open();
  EXPECT_EQ(config->ReadInt("a", "b", 7), 7);
  config->DeleteValue("a", "b");
  EXPECT_FALSE(std::filesystem::exists(file.parent_path()));
  EXPECT_EQ(config->File(), file);
  config->WriteInt("a", "b", 8);
  EXPECT_EQ(Stored("b"), 8);
}

TEST_F(SettingsFile, FilesThatAreNoSettingsAreNeverReplaced) {
  const std::string binary("[a]\nb = 1\n\0\x01\x02", 13);
  const std::string large = "[a]\nb = 1\n" + std::string(1 << 20, ';') + "\n";
  const std::string prose = "Dear diary,\ntoday I pointed a variable at the wrong file.\n";
  for (const std::string& bytes : {binary, large, prose}) {
    Put(bytes);
    const auto config = Open();
    EXPECT_EQ(config->ReadInt("a", "b", 7), 7);
    config->WriteInt("a", "b", 8);
    EXPECT_EQ(config->ReadInt("a", "b", 7), 8) << "kept in memory";
    EXPECT_EQ(Contents(file), bytes);
    // Once somebody mends the file, the change goes out with the next one.
    Put("[a]\nc = 3\n");
    config->WriteInt("a", "d", 4);
    EXPECT_EQ(Stored("b") * 100 + Stored("c") * 10 + Stored("d"), 834);
  }
}

TEST_F(SettingsFile, PlacesThatCannotHoldAFile) {
  Put("[a]\nb = 1\n");
  for (const auto& place : {file / "below.ini", folder, std::filesystem::path()}) {
    const auto config = Config::OpenFile(place);
    config->WriteInt("a", "b", 8);
    config->WriteString("a", "c", L"text");
    config->DeleteValue("a", "c");
    EXPECT_EQ(config->ReadInt("a", "b", 7), 8);
    EXPECT_EQ(config->ReadString("a", "c", L"none"), L"none");
  }
  EXPECT_EQ(Contents(file), "[a]\nb = 1\n");
  EXPECT_EQ(Leftovers(), 0);
}

TEST_F(SettingsFile, ChangesOfOthersAreTakenOver) {
  const auto mine = Open();
  const auto theirs = Open();
  theirs->WriteInt("a", "x", 1);
  theirs->WriteInt("a", "y", 1);
  EXPECT_EQ(mine->ReadInt("a", "x", 0), 0) << "read from memory";
  mine->WriteInt("a", "y", 2);
  EXPECT_EQ(mine->ReadInt("a", "x", 0), 1);
  EXPECT_EQ(mine->ReadInt("a", "y", 0), 2);
  mine->DeleteValue("a", "x");
  theirs->WriteInt("a", "z", 3);
  EXPECT_EQ(theirs->ReadInt("a", "x", 0), 0);
  EXPECT_EQ(theirs->ReadInt("a", "y", 0), 2);
}

// Waits until everything written so far is in the file: on a loaded machine a write
// may give up waiting for its turn, and then goes out with the next one.
void Settle(Config& config, const std::string& name) {
  do {
    config.WriteInt(name, "settled", 1);
  } while (Config::OpenFile(config.File())->ReadInt(name, "settled", 0) != 1);
}

// Every call to the system fails once: the file is whole, the old one or the new
// one, the change is never lost, and nothing is left lying about.
TEST_F(SettingsFile, SystemFailures) {
  for (const Fault fault : {Fault::kIoError, Fault::kNoSpace, Fault::kShort, Fault::kInterrupted}) {
    bool reached = true;
    int call = 1;
    for (; reached; ++call) {
      SCOPED_TRACE(testing::Message() << static_cast<int>(fault) << " at call " << call);
      Put("[a]\nb = 1\nc = 1\n");
      const auto config = Open();
      {
        const test::FaultAt failure(call, fault);
        config->WriteInt("a", "b", 2);
        reached = test::FaultAt::Happened();
      }
      EXPECT_EQ(config->ReadInt("a", "b", 0), 2);
      const int inFile = Stored("b");
      EXPECT_EQ(Stored("c"), 1);
      if (fault == Fault::kShort || fault == Fault::kInterrupted || !reached) {
        EXPECT_EQ(inFile, 2);
      } else {
        EXPECT_TRUE(inFile == 1 || inFile == 2);
      }
      config->WriteInt("a", "c", 3);
      EXPECT_EQ(Stored("b"), 2);
      EXPECT_EQ(Stored("c"), 3);
      EXPECT_EQ(Leftovers(), 0);
    }
    EXPECT_GE(call, 11) << "the write is made of more calls than that";
  }
}

TEST_F(SettingsFile, ReplaceLockHasOneHolder) {
  // Widens the gap between opening a lock file and locking it: it may lose its name.
  platform::g_faultHook = [](Call call) {
    if (call == Call::kLockFile) std::this_thread::sleep_for(std::chrono::microseconds(100));
    return Fault::kNone;
  };
  std::atomic<int> holders{0};
  std::vector<std::thread> workers;
  for (int t = 0; t < 4; ++t) {
    workers.emplace_back([&] {
      for (int i = 0; i < 200; ++i) {
        const auto lock = platform::ReplaceLock::Acquire(file, std::chrono::minutes(1));
        ASSERT_TRUE(lock);
        EXPECT_EQ(++holders, 1);
        std::this_thread::sleep_for(std::chrono::microseconds(50));
        --holders;
      }
    });
  }
  for (auto& worker : workers) worker.join();
  EXPECT_EQ(Leftovers(), 0);
}

TEST_F(SettingsFile, ManyThreadsWriteAndRead) {
  constexpr int threads = 4;
  constexpr int rounds = 25;
  const auto shared = Open();
  std::vector<std::thread> workers;
  for (int t = 0; t < threads; ++t) {
    workers.emplace_back([&, t] {
      const auto own = t % 2 == 0 ? Open() : shared;
      for (int i = 0; i <= rounds; ++i) {
        own->WriteInt("t" + std::to_string(t), "i", i);
        EXPECT_EQ(own->ReadInt("t" + std::to_string(t), "i", -1), i);
        shared->ReadInt("t0", "i", 0);
      }
      Settle(*own, "t" + std::to_string(t));
    });
  }
  for (auto& worker : workers) worker.join();
  for (int t = 0; t < threads; ++t) {
    EXPECT_EQ(Open()->ReadInt("t" + std::to_string(t), "i", -1), rounds) << t;
  }
  EXPECT_EQ(Leftovers(), 0);
}

}  // namespace
}  // namespace korin
