// The two ways in which this system keeps one object of a class per process.
//
// Both are visible, as are the classes that they are used with: a program that hides its names by
// default shares the objects with the shared library all the same.
#pragma once

#include <cstdlib>
#include <new>

namespace Velmar {

// One object on the heap, made on first use and destroyed at exit or by hand.
//
// Not thread-safe: the first Instance() and every Destroy() belong into the time in which the
// process has one thread (start-up and exit). Later calls of Instance() only read.
template <typename T>
class [[gnu::visibility("default")]] Singleton {
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

// One static object, made on first use (several threads may come at once: one makes it, the others
// wait) and destroyed at exit.
template <typename T>
class [[gnu::visibility("default")]]
SingletonNew{public :
                 // Returns the object. What the constructor of T throws passes through; a later
                 // call tries again.
                 static T & GetInstance(){static T instance;
return instance;
}  // namespace Velmar
}
;

}  // namespace Velmar
