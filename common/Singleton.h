// The two ways in which this system keeps one object of a class per process.
#pragma once

#include <cstdlib>
#include <new>

// Makes the names of a class visible outside the shared library, so that a program which hides its
// names by default shares a class's single object with the library.
#define BRIMLET_EXPORT [[gnu::visibility("default")]]

namespace Velmar {

// One object on the heap, made on first use and destroyed at exit or by hand.
//
// Not thread-safe: the first Instance() and every Destroy() belong into the time in which the
// process has one thread (start-up and exit). Later calls of Instance() only read.
template <typename T>
class BRIMLET_EXPORT Singleton {
 public:
  // Returns the object, made now if there is none. Returns null when memory for it is exhausted; a
  // later call tries again. Each object made is destroyed at exit.
  static T* Instance() {
    if (sm_ins == nullptr) {
      Create();
    }
    return sm_ins;
  }

  // Destroys the object if there is one. A later Instance() makes a fresh one.
  static void Destroy() {
    delete sm_ins;
    sm_ins = nullptr;
  }

  // The object, or null.
  inline static T* sm_ins = nullptr;

 private:
  static void Create() {
    try {
      sm_ins = new T;
    } catch (const std::bad_alloc&) {
      return;
    }
    // A full table of exit handlers only means that the object is not destroyed at exit.
    static_cast<void>(std::atexit(&Singleton::Destroy));
  }
};

// One static object, made on first use and destroyed at exit. Threads may come at once: one makes
// the object, the others wait.
template <typename T>
class BRIMLET_EXPORT SingletonNew {
 public:
  // Returns the object. Passes on what the constructor of T throws; a later call tries again.
  static T& GetInstance() {
    static T instance;
    return instance;
  }
};

}  // namespace Velmar
