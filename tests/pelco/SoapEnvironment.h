#pragma once

#include <axis2_util.h>

#include <fstream>
#include <sstream>
#include <string>

#include "support/Subprocess.h"

// An Axis2/C environment with a log file that the test can read.
class SoapEnvironment {
 public:
  SoapEnvironment()
      : logFile_(folder_.path() + "/ws_log"),
        env_(axutil_env_create_all(logFile_.c_str(), AXIS2_LOG_LEVEL_INFO)) {}
  ~SoapEnvironment() { axutil_env_free(env_); }
  SoapEnvironment(const SoapEnvironment&) = delete;
  SoapEnvironment& operator=(const SoapEnvironment&) = delete;

  const axutil_env_t* get() const { return env_; }
  std::string error() const { return axutil_error_get_message(env_->error); }
  std::string log() const {
    std::ifstream file(logFile_);
    std::ostringstream text;
    text << file.rdbuf();
    return text.str();
  }

 private:
  testsupport::TemporaryFolder folder_;
  std::string logFile_;
  axutil_env_t* env_;
};
