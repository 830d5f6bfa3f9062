#pragma once

#include <memory>
#include <mutex>
#include <utility>
#include <vector>

#include "Exceptions.h"

namespace Kelvane {

class resource_error : public Types::KN_Exception {
 public:
  explicit resource_error(const std::string& text) : KN_Exception(text) {}
};

template <class T>
class ResourcePool;

// One object on loan from a pool, given back on destruction. Empty by default.
// The loan keeps the pool alive.
template <class T>
class Resource {
 public:
  Resource() = default;
  Resource(std::shared_ptr<ResourcePool<T>> pool, T* object)
      : pool_(std::move(pool)), object_(object) {}
  Resource(Resource&& other) noexcept
      : pool_(std::move(other.pool_)), object_(std::exchange(other.object_, nullptr)) {}
  Resource& operator=(Resource&& other) noexcept {
    if (this != &other) {
      giveBack();
      pool_ = std::move(other.pool_);
      object_ = std::exchange(other.object_, nullptr);
    }
    return *this;
  }
  ~Resource() { giveBack(); }

  T* get() const { return object_; }
  explicit operator bool() const { return object_ != nullptr; }

 private:
  void giveBack() {
    if (object_ != nullptr) pool_->put(std::exchange(object_, nullptr));
    pool_.reset();
  }

  std::shared_ptr<ResourcePool<T>> pool_;
  T* object_ = nullptr;
};

// A fixed number of objects to lend. Safe from several threads.
template <class T>
class ResourcePool : public std::enable_shared_from_this<ResourcePool<T>> {
 public:
  using Make = T* (*)();
  using Drop = void (*)(T*);

  ResourcePool() = default;
  ResourcePool(const ResourcePool&) = delete;
  ResourcePool& operator=(const ResourcePool&) = delete;
  ~ResourcePool() {
    for (T* object : free_) drop_(object);
  }

  // Fills the pool; throws resource_error when an object cannot be made.
  void open(std::size_t count, Make make, Drop drop) {
    std::lock_guard<std::mutex> held(mutex_);
    drop_ = drop;
    for (std::size_t i = 0; i < count; ++i) {
      T* object = make();
      if (object == nullptr) throw resource_error("Could not fill the resource pool");
      free_.push_back(object);
    }
  }

  // Throws resource_error when all objects are on loan.
  Resource<T> get() {
    std::lock_guard<std::mutex> held(mutex_);
    if (free_.empty()) throw resource_error("Resource pool is exhausted");
    T* object = free_.back();
    free_.pop_back();
    return Resource<T>(this->shared_from_this(), object);
  }

  void put(T* object) {
    std::lock_guard<std::mutex> held(mutex_);
    free_.push_back(object);
  }

 private:
  std::mutex mutex_;
  std::vector<T*> free_;
  Drop drop_ = nullptr;
};

}  // namespace Kelvane
