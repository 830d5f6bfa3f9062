#pragma once

namespace activemq {
namespace library {

// Nothing has to be set up here; the calls keep programs portable.
class ActiveMQCPP {
 public:
  static void initializeLibrary() {}
  static void initializeLibrary(int, char**) {}
  static void shutdownLibrary() {}
};

}  // namespace library
}  // namespace activemq
