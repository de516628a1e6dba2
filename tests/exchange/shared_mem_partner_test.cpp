// Images handed between two processes.
#include "exchange/exchange_fixture.h"

namespace korin::test {
namespace {

struct Case {
  SampleKind kind;
  bool byFile;
  int policy;

  std::string Limit() const { return byFile ? "100" : "75030000"; }
  // The receiver keeps its image under the other policy.
  int ReceiverPolicy() const { return 1 - policy; }
  std::string Received() const {
    CImage image = MakeReceived(kind, byFile, ReceiverPolicy());
    return Describe(image);
  }
};

template <typename Exchange>
void ForAllCases(const Exchange& exchange) {
  for (const SampleKind& kind : kSampleKinds) {
    for (const bool byFile : {false, true}) {
      for (const int policy : {0, 1}) {
        SCOPED_TRACE(testing::Message() << kind.type << (kind.isSigned ? " signed" : "")
                                        << (byFile ? " by file" : "") << ", policy " << policy);
        exchange({kind, byFile, policy});
        CSharedMem::CloseMappingHandles();
      }
    }
  }
}

using PartnerTest = ExchangeTest;

TEST_F(PartnerTest, EveryTypeReachesTheOtherProcess) {
  ForAllCases([&](const Case& c) {
    const ReportFile report;
    exchange::g_maxMappedSamples = std::stoll(c.Limit());
    ASSERT_EQ(CSharedMem::CreateFileMappings(1), 1);
    ASSERT_EQ(Write(MakeSample(c.kind, c.policy)), 1);
    ASSERT_EQ(FileExists(), c.byFile);
    Partner partner("receive " + std::to_string(c.ReceiverPolicy()) + " " + c.Limit() + " 1 " +
                    report.Argument());
    ASSERT_EQ(partner.Finish(), 0);
    EXPECT_EQ(Contents(report.Path()), c.Received());
    EXPECT_FALSE(FileExists());
  });
}

TEST_F(PartnerTest, EveryTypeComesFromTheOtherProcess) {
  ForAllCases([&](const Case& c) {
    const ReportFile report;
    Partner partner("send " + std::to_string(c.kind.type) + (c.kind.isSigned ? " 1 " : " 0 ") +
                    std::to_string(c.policy) + " " + c.Limit() + " " + report.Argument());
    ASSERT_TRUE(report.WaitForText("ready"));
    exchange::g_maxMappedSamples = std::stoll(c.Limit());
    const auto manager = MakeSampleManager(c.ReceiverPolicy());
    // Attributes alone first: the store of the receiver is not touched.
    CImage image;
    ASSERT_EQ(CSharedMem::CreateFileMappings(1), 1);
    ASSERT_EQ(CSharedMem::ReadSharedMemory(manager, &image, 0), 1);
    EXPECT_TRUE(image.IsEmpty());
    image.Header().DeleteAll();
    ASSERT_EQ(CSharedMem::ReadSharedMemory(manager, &image, 1), 1);
    EXPECT_EQ(Describe(image), c.Received());
    EXPECT_EQ(partner.Finish(), 0);
  });
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
