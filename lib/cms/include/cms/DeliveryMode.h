#pragma once

namespace cms {

class DeliveryMode {
 public:
  enum DELIVERY_MODE { PERSISTENT = 0, NON_PERSISTENT = 1 };
  virtual ~DeliveryMode() = default;
};

}  // namespace cms
