// Worker modules: counting them, their time, and the body of their threads. The flags and the access time are plain
// members of the interface; here they are touched as atomics, since a module's thread and others meet in them.
#include "baseclass.h"

#include <atomic>
#include <boost/date_time/posix_time/posix_time_types.hpp>
#include <boost/thread/locks.hpp>
#include <chrono>
#include <cstdio>
#include <cstring>
#include <thread>

static_assert(sizeof(dword) == 8 && sizeof(Cmodule) == 80);

int Cmodule::module_count = 0;
bool Cmodule::m_bShouldStop = false;
// Before and after everything else: a program may keep modules in static storage.
[[gnu::init_priority(101)]] boost::mutex Cmodule::s_mutex;

namespace {

using Guard = boost::lock_guard<boost::mutex>;

dword utc_seconds() {
  const boost::posix_time::ptime epoch(boost::gregorian::date(1970, 1, 1));
  const auto since = boost::posix_time::microsec_clock::universal_time() - epoch;
  return static_cast<dword>(since.ticks() / since.ticks_per_second());
}

std::atomic_ref<dword> access_time_of(Cmodule& module) {
  return std::atomic_ref<dword>(module.m_dwLastAccessTime);
}

}  // namespace

Cmodule::Cmodule(char* name)
    : m_dwLastAccessTime(0),
      m_szName{},
      m_dwWorkDuration(0),
      m_dwLastWorkDuration(0),
      m_thread(nullptr),
      m_Stop(false) {
  const Guard guard(s_mutex);
  if (name != nullptr) std::memcpy(m_szName, name, strnlen(name, sizeof m_szName - 1));
  ++module_count;
  m_dwLastAccessTime = utc_seconds();
}

// NOLINTNEXTLINE(bugprone-exception-escape): that the lock failed is for the caller to know
Cmodule::~Cmodule() noexcept(false) {
  {
    const Guard guard(s_mutex);
    --module_count;
  }
  Stop();
}

bool Cmodule::Init() {
  return true;
}

int Cmodule::Run() {
  return 0;
}

bool Cmodule::Terminate() {
  return true;
}

char* Cmodule::GetClassName() {
  return m_szName;
}

// Called directly, not through the virtual table, this may come without an object; the compiler, which knows better,
// must not leave out the test that delete makes.
void Cmodule::Kill() {
  Cmodule* self = this;
  asm("" : "+r"(self));
  delete self;
}

void Cmodule::StartRun() {
  boost::thread(CmoduleEntry(*this)).detach();
}

void Cmodule::Start() {
  StartRun();
}

void Cmodule::Stop() {
  std::atomic_ref<bool>(m_Stop).store(true, std::memory_order_release);
}

void Cmodule::Sleep(int ms) {
  std::this_thread::sleep_for(std::chrono::milliseconds(ms));
}

dword Cmodule::GetSecond() {
  return utc_seconds();
}

void Cmodule::Access() {
  access_time_of(*this).store(utc_seconds(), std::memory_order_relaxed);
}

dword Cmodule::GetLassAccessTime() {
  return access_time_of(*this).load(std::memory_order_relaxed);
}

// Both counters grow by the same, each by a clock reading of its own.
void Cmodule::Leave() {
  m_dwWorkDuration += utc_seconds() - GetLassAccessTime();
  m_dwLastWorkDuration += utc_seconds() - GetLassAccessTime();
}

int Cmodule::GetModuleCount() {
  const Guard guard(s_mutex);
  return module_count;
}

void Cmodule::StopAll() {
  std::atomic_ref<bool>(m_bShouldStop).store(true, std::memory_order_release);
}

CmoduleEntry::CmoduleEntry(Cmodule& module) : m_(module) {}

void CmoduleEntry::operator()() {
  try {
    if (!m_.Init()) return;
    m_.Run();
    m_.Terminate();
  } catch (...) {
    std::puts("Uncaptured Exception");
  }
}
