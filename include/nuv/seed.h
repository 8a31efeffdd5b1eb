/// \file Pool-resident objects: NuvSeed, NuvVirtualSeed, NuvCore, and the counted handle ref<T>.
#ifndef NUV_SEED_H
#define NUV_SEED_H

#include <nuv/mempool.h>

#include <cstddef>
#include <type_traits>

/// The root of every pool object: the pool it lives in and a reference count (8 bytes, in that
/// order). Created only by its own operator new on a pool.
/// Layout (checked in pool/layout.cpp): 0 pool, 4 count; 8 bytes. NuvVirtualSeed puts its
/// virtual table first (12 bytes); NuvCore adds nothing.
class NuvSeed {
 public:
  /// Takes a block of the pool tagged "unassigned"; the constructor retags it. A pool that cannot
  /// give the block ends the process (the pool's out-of-space report); a null pool, or more than
  /// 32 objects waiting for their constructors at once, stop at assertion 2464 of "__nw".
  static void* operator new(size_t size, NuvMempool* pool);
  /// Frees the storage to its pool. Does nothing for null; an object whose count is not 0 stops
  /// at assertion 2475 of "__dl".
  // NOLINTNEXTLINE(cert-dcl54-cpp,misc-new-delete-overloads): paired with the pool form below.
  static void operator delete(void* p);
  /// Matches the placement form; runs only if a constructor could fail, which none does.
  static void operator delete(void* p, NuvMempool* pool);

  /// Retags the object's block with user and counts it. Storage that the pool operator new did
  /// not give stops at assertion 2456 of "NuvSeed".
  explicit NuvSeed(NuvMempool::User user);
  ~NuvSeed();
  NuvSeed(const NuvSeed&) = delete;
  NuvSeed& operator=(const NuvSeed&) = delete;
  NuvSeed(NuvSeed&&) = delete;
  NuvSeed& operator=(NuvSeed&&) = delete;

  /// Adds one reference atomically (nothing for null); returns the object.
  NuvSeed* UpRef();
  /// Drops one reference atomically (nothing for null); never deletes.
  void DownRef();

  NuvMempool* GetPool() const { return poolM; }
  unsigned GetRefCount() const { return countM; }

 protected:
  /// Subtracts one reference atomically; returns the count before.
  unsigned DropReference();

 private:
  friend struct NuvMempoolLayout;
  NuvMempool* poolM;
  volatile unsigned countM = 0;
};

/// A pool object with a virtual destructor, so that it can be deleted through a base pointer.
class NuvVirtualSeed : public NuvSeed {
 public:
  explicit NuvVirtualSeed(NuvMempool::User user) : NuvSeed(user) {}
  virtual ~NuvVirtualSeed() = default;
  NuvVirtualSeed(const NuvVirtualSeed&) = delete;
  NuvVirtualSeed& operator=(const NuvVirtualSeed&) = delete;
  NuvVirtualSeed(NuvVirtualSeed&&) = delete;
  NuvVirtualSeed& operator=(NuvVirtualSeed&&) = delete;

  /// Destroys the object and frees its storage (nothing for null); returns null.
  NuvVirtualSeed* DeleteThis();
};

/// The reference-counted base of the library's classes: the last DownRef deletes the object.
class NuvCore : public NuvVirtualSeed {
 public:
  explicit NuvCore(NuvMempool::User user) : NuvVirtualSeed(user) {}
  ~NuvCore() override = default;
  NuvCore(const NuvCore&) = delete;
  NuvCore& operator=(const NuvCore&) = delete;
  NuvCore(NuvCore&&) = delete;
  NuvCore& operator=(NuvCore&&) = delete;

  /// Drops one reference atomically (nothing for null); the one that takes the count from 1 to 0
  /// destroys the object and frees its storage.
  void DownRef();
};

/// Holds one reference on a pool object while it holds the object; null is allowed everywhere.
template <typename T>
class ref {
 public:
  ref() = default;
  ref(T* object) : objectM(object) { Hold(objectM); }  // NOLINT(google-explicit-constructor)
  ref(const ref& other) : objectM(other.objectM) { Hold(objectM); }
  ref(ref&& other) noexcept : objectM(other.objectM) { other.objectM = nullptr; }
  /// A reference to a derived object is also a reference to its base (ref<NuvString> to
  /// ref<NuvCore>), with one more reference held.
  template <typename U, typename = std::enable_if_t<std::is_convertible_v<U*, T*>>>
  ref(const ref<U>& other) : objectM(other.get()) {  // NOLINT(google-explicit-constructor)
    Hold(objectM);
  }
  ~ref() { Release(objectM); }

  /// Takes the reference on the new object before dropping the one on the old, so assigning a
  /// ref its own object is safe.
  ref& operator=(const ref& other) {
    if (this != &other) {
      Assign(other.objectM);
    }
    return *this;
  }
  ref& operator=(T* object) {
    Assign(object);
    return *this;
  }
  ref& operator=(ref&& other) noexcept {
    if (this != &other) {
      Release(objectM);
      objectM = other.objectM;
      other.objectM = nullptr;
    }
    return *this;
  }

  T* operator->() const { return objectM; }
  T& operator*() const { return *objectM; }
  T* get() const { return objectM; }
  explicit operator bool() const { return objectM != nullptr; }
  bool operator==(const ref& other) const { return objectM == other.objectM; }
  bool operator!=(const ref& other) const { return objectM != other.objectM; }
  bool operator==(const T* object) const { return objectM == object; }
  bool operator!=(const T* object) const { return objectM != object; }

 private:
  static void Hold(T* object) {
    if (object != nullptr) {
      object->UpRef();
    }
  }
  static void Release(T* object) {
    if (object != nullptr) {
      object->DownRef();
    }
  }
  void Assign(T* object) {
    Hold(object);
    T* old = objectM;
    objectM = object;
    Release(old);
  }

  T* objectM = nullptr;
};

#endif  // NUV_SEED_H
