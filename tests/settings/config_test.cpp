#include "korinimage/config.h"

#include <gtest/gtest.h>

#include <chrono>
#include <clocale>
#include <limits>
#include <thread>
#include <utility>
#include <vector>

#include "platform/atomic_file.h"
#include "settings/settings_file.h"
#include "support/memory_config.h"

namespace korin {
namespace {

using platform::Call;
using platform::Fault;
using test::SettingsFile;

TEST_F(SettingsFile, ValuesComeBackFromTheFile) {
  using Wide = std::wstring;
  const std::vector<Wide> texts = {
      L"",
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
      L"%",
  };
  const std::vector<std::string> names = {
      "", "k", "a=b", "[x]", " key ", "; key", "100%", "n\nl", "\xC3\xA9t\xC3\xA9"};
  {
    const auto config = Open();
    for (std::size_t i = 0; i < texts.size(); ++i) {
      config->WriteString("Texts", "t" + std::to_string(i), texts[i]);
    }
    for (std::size_t i = 0; i < names.size(); ++i) {
      for (const std::string& key : names) {
        config->WriteInt(names[i], key, static_cast<int>(key.size() + i * 100));
      }
    }
    config->WriteInt64("Numbers", "min", std::numeric_limits<std::int64_t>::min());
    config->WriteInt64("Numbers", "max", std::numeric_limits<std::int64_t>::max());
    EXPECT_EQ(config->ReadInt("Numbers", "max", 0), std::numeric_limits<int>::max());
  }
  const auto config = Open();
  for (std::size_t i = 0; i < texts.size(); ++i) {
    EXPECT_EQ(config->ReadString("Texts", "t" + std::to_string(i), L"absent"), texts[i]) << i;
  }
  for (std::size_t i = 0; i < names.size(); ++i) {
    for (const std::string& key : names) {
      EXPECT_EQ(config->ReadInt(names[i], key, -1), static_cast<int>(key.size() + i * 100))
          << names[i] << ' ' << key;
    }
  }
  EXPECT_EQ(config->ReadInt64("Numbers", "min", 0), std::numeric_limits<std::int64_t>::min());
  EXPECT_EQ(config->ReadInt("Numbers", "min", 0), std::numeric_limits<int>::min());
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
  const auto number = [&](const char* key) { return config->ReadInt("VMManager", key, -1); };
  EXPECT_EQ(config->ReadInt("", "TOP", -1), 1);
  EXPECT_EQ(number("BlockSize"), 64);
  EXPECT_EQ(number("MemoryRatio"), 70);
  EXPECT_EQ(number("Far"), std::numeric_limits<int>::max());
  EXPECT_EQ(number("Low"), std::numeric_limits<int>::min());
  EXPECT_EQ(number("QuotedNumber"), 5);
  for (const char* key : {"Half", "Hex", "Words", "None", "Absent", "Ratio", "Sign", "minus"}) {
    EXPECT_EQ(number(key), -1) << key;
  }
  const auto real = [&](const char* key) { return config->ReadDouble("VMManager", key, 0.25); };
  EXPECT_EQ(real("Ratio"), 12.5);
  EXPECT_EQ(real("Exp"), -1000.0);
  for (const char* key : {"Comma", "Huge", "Nan", "Inf", "None", "Hex"}) {
    EXPECT_EQ(real(key), 0.25) << key;
  }
  for (const auto& [key, value] : std::vector<std::pair<const char*, bool>>{
           {"a", true}, {"b", false}, {"c", true}, {"d", false}, {"f", true}}) {
    EXPECT_EQ(config->ReadBool("VMManager", key, !value), value) << key;
  }
  for (const bool fallback : {true, false}) {
    EXPECT_EQ(config->ReadBool("VMManager", "e", fallback), fallback);
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
  const std::string once = Bytes();
  for (const char* part :
       {"; my settings\n", "; about memory\n[VMManager]", "; one half\n", "MemoryRatio = 60\n",
        "; a stray line\n", "x = 1\n", "[New]\ny = 2\n", "\n;VMDrive = /scratch\n; the end\n"}) {
    EXPECT_NE(once.find(part), once.npos) << part << "missing in\n" << once;
  }
  EXPECT_LT(once.find("[VMManager]"), once.find("[Other]"));
  for (int i = 3; i < 6; ++i) Open()->WriteInt("New", "y", i);
  Open()->WriteInt("New", "y", 2);
  EXPECT_EQ(Bytes(), once) << "nothing piles up";
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
  EXPECT_EQ(Open()->ReadInt("a", "b", 7), 8);
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
    EXPECT_EQ(Bytes(), bytes);
    // Once somebody mends the file, the change goes out with the next one.
    Put("[a]\nc = 3\n");
    config->WriteInt("a", "d", 4);
    const auto mended = Open();
    EXPECT_EQ(mended->ReadInt("a", "b", 0) * 100 + mended->ReadInt("a", "c", 0) * 10 +
                  mended->ReadInt("a", "d", 0),
              834);
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
  EXPECT_EQ(Bytes(), "[a]\nb = 1\n");
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

std::atomic<int> g_calls;
std::atomic<int> g_failing;
std::atomic<Fault> g_fault;

Fault FailOne(Call) { return g_calls++ == g_failing ? g_fault.load() : Fault::kNone; }

// Every call to the system fails once: the file is whole, the old one or the new
// one, the change is never lost, and nothing is left lying about.
TEST_F(SettingsFile, SystemFailures) {
  for (const Fault fault : {Fault::kIoError, Fault::kNoSpace, Fault::kShort, Fault::kInterrupted}) {
    g_fault = fault;
    bool reached = true;
    for (g_failing = 0; reached; ++g_failing) {
      Put("[a]\nb = 1\nc = 1\n");
      const auto config = Open();
      g_calls = 0;
      platform::g_faultHook = FailOne;
      config->WriteInt("a", "b", 2);
      platform::g_faultHook = nullptr;
      reached = g_calls > g_failing;

      EXPECT_EQ(config->ReadInt("a", "b", 0), 2);
      const int inFile = Open()->ReadInt("a", "b", 0);
      EXPECT_EQ(Open()->ReadInt("a", "c", 0), 1);
      if (fault == Fault::kShort || fault == Fault::kInterrupted || !reached) {
        EXPECT_EQ(inFile, 2) << static_cast<int>(fault) << " at call " << g_failing;
      } else {
        EXPECT_TRUE(inFile == 1 || inFile == 2);
      }
      config->WriteInt("a", "c", 3);
      EXPECT_EQ(Open()->ReadInt("a", "b", 0), 2);
      EXPECT_EQ(Open()->ReadInt("a", "c", 0), 3);
      EXPECT_EQ(Leftovers(), 0) << static_cast<int>(fault) << " at call " << g_failing;
    }
    EXPECT_GE(g_failing, 10) << "the write is made of more calls than that";
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

TEST(DefaultConfig, CanBeReplaced) {
  const test::ScopedMemoryConfig settings;
  settings->WriteInt("IO", "FitsSecFrac", 3);
  EXPECT_EQ(CRegistry::Read("IO", "FitsSecFrac"), 3);
  EXPECT_EQ(CRegistry::Read("IO", "Absent", 9), 9);
  EXPECT_TRUE(Config::DefaultConfig()->File().empty());
}

}  // namespace
}  // namespace korin
