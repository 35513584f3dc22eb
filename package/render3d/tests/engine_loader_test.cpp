// The package's engine loader against a missing library and fake libraries
// that fail in each way it reports, then against the real engine.
#include <gtest/gtest.h>

#include <string>

#include "bin_path.h"
#include "render3d/engine_loader.h"
#include "test_host.h"

namespace {

using nimbo::testing::BinPathOverride;
using nimbo::testing::MessageCapture;

const std::string kPrefix = "The nb3D.DLL couldn't be loaded. Reason:\r\n";

std::string FakeDir(const char* kind) { return std::string(FAKE_ENGINE_DIR) + "/fake_" + kind; }

class EngineLoaderTest : public ::testing::Test {
 protected:
  void SetUp() override { nimbo::ForgetReportedEngineFailure(); }
  MessageCapture capture;
};

TEST_F(EngineLoaderTest, MissingLibraryIsReportedOnceWithTheSystemCode) {
  BinPathOverride bin(FakeDir("missing"));
  EXPECT_EQ(nimbo::EngineLibraryPath(), FakeDir("missing") + "/libnb3D.so");
  EXPECT_EQ(nimbo::CreateEngineObject(nullptr), nullptr);
  ASSERT_EQ(capture.messages.size(), 1u);
  const MessageCapture::Message& m = capture.messages[0];
  EXPECT_EQ(m.caption, "nb3D error");
  EXPECT_EQ(m.icon, orrery::kIconError);
  EXPECT_EQ(m.owner, nullptr);
  // The system's code (ENOENT for a missing file), then the loader's own
  // text naming the file.
  const std::string head = kPrefix + "nb3D.DLL not found\r\nCode 2: ";
  ASSERT_EQ(m.text.rfind(head, 0), 0u) << m.text;
  EXPECT_NE(m.text.find("/fake_missing/libnb3D.so: ", head.size()), std::string::npos) << m.text;

  // Every further effect meets the same failure; the user reads it once.
  EXPECT_EQ(nimbo::CreateEngineObject(nullptr), nullptr);
  EXPECT_FALSE(nimbo::CheckEngineLibrary());
  EXPECT_EQ(capture.messages.size(), 1u);
}

TEST_F(EngineLoaderTest, LibraryWithoutFactoryIsCorrupt) {
  BinPathOverride bin(FakeDir("no_factory"));
  EXPECT_FALSE(nimbo::CheckEngineLibrary());
  ASSERT_EQ(capture.messages.size(), 1u);
  const std::string& text = capture.messages[0].text;
  EXPECT_EQ(text.rfind(kPrefix + "nb3D.DLL corrupt\r\nCode ", 0), 0u) << text;
  EXPECT_NE(text.find("Cnb3D"), std::string::npos) << "the loader's text names the missing symbol";
  EXPECT_EQ(nimbo::CreateEngineObject(nullptr), nullptr);
}

TEST_F(EngineLoaderTest, OtherVersionShowsTheConflictWithoutCode) {
  BinPathOverride bin(FakeDir("old_version"));
  // The light check stops before the factory is called: nothing to report.
  EXPECT_TRUE(nimbo::CheckEngineLibrary());
  EXPECT_TRUE(capture.messages.empty());

  EXPECT_EQ(nimbo::CreateEngineObject(nullptr), nullptr);
  ASSERT_EQ(capture.messages.size(), 1u);
  EXPECT_EQ(capture.messages[0].text,
            kPrefix +
                "nb3D.DLL version conflict (v 1.02, but this plugin needs v 1.03)\r\n"
                "Please download the latest version at\r\n" +
                nimbo::kEngineDownloadAddress);
}

TEST_F(EngineLoaderTest, FailingFactoryReportsTheErrorWithItsCode) {
  BinPathOverride bin(FakeDir("failing_factory"));
  EXPECT_EQ(nimbo::CreateEngineObject(nullptr), nullptr);
  ASSERT_EQ(capture.messages.size(), 1u);
  EXPECT_EQ(capture.messages[0].text,
            kPrefix + "An error occured while creating a nb3D object\r\nCode 12: Cannot allocate memory");
}

TEST_F(EngineLoaderTest, RealEngineLoadsAndAFixedFailureIsReportedAgain) {
  {
    BinPathOverride bin(FakeDir("missing"));
    EXPECT_EQ(nimbo::CreateEngineObject(nullptr), nullptr);
  }
  BinPathOverride bin(NIMBO_BIN_DIR);
  EXPECT_TRUE(nimbo::CheckEngineLibrary());
  nb3D* first = nimbo::CreateEngineObject(nullptr);
  nb3D* second = nimbo::CreateEngineObject(nullptr);
  ASSERT_NE(first, nullptr);
  ASSERT_NE(second, nullptr);
  EXPECT_NE(first, second) << "each effect gets its own object";
  first->Release();
  second->Release();
  EXPECT_EQ(capture.messages.size(), 1u);

  // After a success the same failure is news again.
  BinPathOverride broken(FakeDir("missing"));
  EXPECT_EQ(nimbo::CreateEngineObject(nullptr), nullptr);
  EXPECT_EQ(capture.messages.size(), 2u);
}

}  // namespace
