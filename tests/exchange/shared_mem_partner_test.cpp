// Images handed between two processes.
#include "exchange/exchange_fixture.h"

namespace korin::test {
namespace {

struct Case {
  SampleKind kind;
  bool byFile;
  int policy;
};

std::vector<Case> AllCases() {
  std::vector<Case> cases;
  for (const SampleKind& kind : kSampleKinds) {
    for (const bool byFile : {false, true}) {
      for (const int policy : {0, 1}) cases.push_back({kind, byFile, policy});
    }
  }
  return cases;
}

std::string NameOf(const Case& c) {
  return std::to_string(c.kind.type) + (c.kind.isSigned ? " signed" : "") +
         (c.byFile ? " by file" : " by memory") + ", policy " + std::to_string(c.policy);
}

std::string LimitOf(const Case& c) { return c.byFile ? "100" : "75030000"; }

using PartnerTest = ExchangeTest;

TEST_F(PartnerTest, EveryTypeReachesTheOtherProcess) {
  for (const Case& c : AllCases()) {
    SCOPED_TRACE(NameOf(c));
    const ReportFile report;
    exchange::g_maxMappedSamples = std::stoll(LimitOf(c));
    ASSERT_EQ(CSharedMem::CreateFileMappings(1), 1);
    ASSERT_EQ(Write(MakeSample(c.kind, c.policy)), 1);
    ASSERT_EQ(FileExists(), c.byFile);
    // The receiver keeps its image under the other policy.
    Partner partner("receive " + std::to_string(1 - c.policy) + " " + LimitOf(c) + " 1 " +
                    report.Argument());
    ASSERT_EQ(partner.Finish(), 0);
    CImage expected = MakeReceived(c.kind, c.byFile, 1 - c.policy);
    EXPECT_EQ(Contents(report.Path()), Describe(expected));
    EXPECT_FALSE(FileExists());
    CSharedMem::CloseMappingHandles();
  }
}

TEST_F(PartnerTest, EveryTypeComesFromTheOtherProcess) {
  for (const Case& c : AllCases()) {
    SCOPED_TRACE(NameOf(c));
    const ReportFile report;
    Partner partner("send " + std::to_string(c.kind.type) + " " +
                    std::to_string(c.kind.isSigned ? 1 : 0) + " " + std::to_string(c.policy) + " " +
                    LimitOf(c) + " " + report.Argument());
    ASSERT_TRUE(report.WaitForText("ready"));
    exchange::g_maxMappedSamples = std::stoll(LimitOf(c));
    const auto manager = MakeSampleManager(1 - c.policy);
    // Attributes alone first: the store of the receiver is not touched.
    CImage image;
    ASSERT_EQ(CSharedMem::CreateFileMappings(1), 1);
    ASSERT_EQ(CSharedMem::ReadSharedMemory(manager, &image, 0), 1);
    EXPECT_TRUE(image.IsEmpty());
    image.Header().DeleteAll();
    ASSERT_EQ(CSharedMem::ReadSharedMemory(manager, &image, 1), 1);
    CImage expected = MakeReceived(c.kind, c.byFile, 1 - c.policy);
    EXPECT_EQ(Describe(image), Describe(expected));
    EXPECT_EQ(partner.Finish(), 0);
    CSharedMem::CloseMappingHandles();
  }
}

TEST_F(PartnerTest, ImageOnItsWaySurvivesItsWriterWhileTheReaderIsThere) {
  exchange::g_maxMappedSamples = 100;
  const ReportFile report;
  {
    Partner partner("send -64 1 0 100 " + report.Argument());
    ASSERT_TRUE(report.WaitForText("ready"));
    ASSERT_EQ(CSharedMem::CreateFileMappings(0), 1);
    ASSERT_EQ(partner.Finish(), 0);
  }
  // This manager's sweep meets the file when its writer has gone.
  const auto manager = MakeSampleManager(1);
  CImage image;
  ASSERT_EQ(CSharedMem::ReadSharedMemory(manager, &image, 1), 1);
  CImage expected = MakeReceived({-64, true}, true, 1);
  EXPECT_EQ(Describe(image), Describe(expected));
}

TEST_F(PartnerTest, AbandonedFileIsSwept) {
  exchange::g_maxMappedSamples = 100;
  ASSERT_EQ(CSharedMem::CreateFileMappings(0), 1);
  ASSERT_EQ(Write(MakeSample({8, false}, 1)), 1);
  MakeSampleManager(1);
  EXPECT_TRUE(FileExists());
  CSharedMem::CloseMappingHandles();
  EXPECT_TRUE(FileExists());
  MakeSampleManager(1);
  EXPECT_FALSE(FileExists());
}

}  // namespace
}  // namespace korin::test
