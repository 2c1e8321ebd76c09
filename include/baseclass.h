// Cmodule: the base of a named worker that does its work on a detached thread of its own.
//
// A derived class overrides Init, Run and Terminate; StartRun calls them on the new thread, in this order. The object
// must outlive its thread: nothing here ends a Run, or waits for it. A stop is asked for by Stop (one module) or
// StopAll (all of them), and Run is expected to look at m_Stop and m_bShouldStop, through std::atomic_ref since other
// threads set them.
//
// Making, destroying and counting modules takes s_mutex, and throws boost::lock_error ("boost: mutex lock failed in
// pthread_mutex_lock") when that fails. Stop, StopAll, Access and GetLassAccessTime may be called on any thread; the
// durations belong to the module's own.
#ifndef CACHET_BASECLASS_H
#define CACHET_BASECLASS_H

#include <boost/thread/mutex.hpp>
#include <boost/thread/thread.hpp>

#include "cachet.h"

typedef unsigned long dword;

class CACHET_API Cmodule {
 public:
  // `name`: its first 31 bytes are kept; null for none.
  explicit Cmodule(char* name);
  virtual ~Cmodule() noexcept(false);  // NOLINT(bugprone-exception-escape): see above
  Cmodule(const Cmodule&) = delete;
  Cmodule& operator=(const Cmodule&) = delete;

  // On the module's thread. When Init returns false, neither Run nor Terminate is called. An exception ends the thread
  // with a line on standard output.
  virtual bool Init();
  virtual int Run();
  virtual bool Terminate();
  virtual char* GetClassName();
  // Deletes the module, which came from new. Called directly (Cmodule::Kill) without an object, it does nothing.
  virtual void Kill();

  // Starts the thread; boost::thread_resource_error when there is none to be had.
  void StartRun();
  void Start();  // the same
  // Asks this module to stop.
  void Stop();
  // Sleeps for `ms` milliseconds.
  void Sleep(int ms);
  // Seconds of UTC since 1970-01-01.
  dword GetSecond();
  // Sets the time of the last access to now.
  void Access();
  dword GetLassAccessTime();
  // Adds the time since the last access to both durations; the access time stays.
  void Leave();
  // The modules there are in this process.
  static int GetModuleCount();
  // Asks all modules of this process to stop.
  static void StopAll();

  dword m_dwLastAccessTime;  // seconds, as GetSecond gives them
  char m_szName[32];
  dword m_dwWorkDuration;      // seconds
  dword m_dwLastWorkDuration;  // seconds
  boost::thread* m_thread;     // null: reserved
  bool m_Stop;

  static int module_count;
  static bool m_bShouldStop;
  static boost::mutex s_mutex;
};

// The function object of a module's thread.
class CACHET_API CmoduleEntry {
 public:
  explicit CmoduleEntry(Cmodule& module);
  void operator()();

  Cmodule& m_;
};

#endif
