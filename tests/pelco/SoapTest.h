#pragma once

#include <axis2_util.h>
#include <gtest/gtest.h>

#include <string>

#include "support/Subprocess.h"

// Tests in an Axis2/C environment of their own, whose log can be read.
class SoapTest : public testing::Test {
 protected:
  ~SoapTest() override { axutil_env_free(env_); }
  const axutil_env_t* env() const { return env_; }
  std::string error() const { return axutil_error_get_message(env_->error); }
  std::string log() const { return testsupport::readFile(logFile_); }

 private:
  const testsupport::TemporaryFolder folder_;
  const std::string logFile_ = folder_.path() + "/ws_log";
  axutil_env_t* const env_ = axutil_env_create_all(logFile_.c_str(), AXIS2_LOG_LEVEL_INFO);
};
