// A test fixture with a scratch folder of its own under /tmp, removed with
// everything in it when the test ends.
#pragma once

#include <gtest/gtest.h>
#include <unistd.h>

#include <filesystem>
#include <string>

namespace nimbo::host {

class ScratchFolderTest : public ::testing::Test {
 protected:
  void SetUp() override {
    char pattern[] = "/tmp/nimbo-test-XXXXXX";
    ASSERT_NE(mkdtemp(pattern), nullptr);
    dir_ = pattern;
  }
  void TearDown() override {
    if (!dir_.empty()) std::filesystem::remove_all(dir_);
  }
  std::string Path(const std::string& name) const { return dir_ + "/" + name; }

  std::string dir_;
};

}  // namespace nimbo::host
