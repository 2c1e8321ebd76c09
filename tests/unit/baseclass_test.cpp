// Worker modules on threads of their own.
#include "baseclass.h"

#include <gtest/gtest.h>
#include <pthread.h>
#include <unistd.h>

#include <atomic>
#include <boost/thread/exceptions.hpp>
#include <boost/thread/lock_types.hpp>
#include <cstring>
#include <ctime>
#include <future>
#include <memory>
#include <stdexcept>
#include <string>
#include <thread>
#include <vector>

#include "support/child_process.h"

// As a caller without an object reaches it.
void kill_of(Cmodule* module) asm("_ZN7Cmodule4KillEv");

namespace cachet::test {
namespace {

char plain_name[] = "worker";

// Writes down the calls, and tells when its thread has ended.
class Recorder : public Cmodule {
 public:
  explicit Recorder(std::string throws_in = "", bool init = true)
      : Cmodule(plain_name), throws_in_(std::move(throws_in)), init_(init) {}

  bool Init() override {
    thread_local Farewell farewell;
    farewell.ended = ended_;
    return called("Init"), init_;
  }
  int Run() override { return called("Run"), 7; }
  bool Terminate() override { return called("Terminate"), false; }

  std::string calls_of_thread() {
    StartRun();
    ended_->get_future().wait();
    return calls_;
  }
  bool ran_on_other_thread() const { return thread_ != std::this_thread::get_id(); }

 private:
  struct Farewell {
    std::shared_ptr<std::promise<void>> ended;
    ~Farewell() { ended->set_value(); }
  };

  void called(const char* what) {
    calls_ += std::string(what) + " ";
    thread_ = std::this_thread::get_id();
    if (throws_in_ == what) throw std::runtime_error(what);
  }

  std::string throws_in_;
  bool init_;
  std::string calls_;
  std::thread::id thread_;
  std::shared_ptr<std::promise<void>> ended_ = std::make_shared<std::promise<void>>();
};

TEST(Module, KeepsTheStartOfItsName) {
  std::string name(40, 'n');
  EXPECT_STREQ(Cmodule(name.data()).GetClassName(), std::string(31, 'n').c_str());
  EXPECT_STREQ(Cmodule(plain_name).GetClassName(), "worker");
  EXPECT_STREQ(Cmodule(nullptr).GetClassName(), "");
}

TEST(Module, HasItsFieldsAndVirtualsInOrder) {
  const Cmodule module(plain_name);
  const auto offset_of = [&](const void* field) {
    return static_cast<const char*>(field) - reinterpret_cast<const char*>(&module);
  };
  EXPECT_EQ(offset_of(&module.m_dwLastAccessTime), 8);
  EXPECT_EQ(offset_of(&module.m_szName), 16);
  EXPECT_EQ(offset_of(&module.m_dwWorkDuration), 48);
  EXPECT_EQ(offset_of(&module.m_dwLastWorkDuration), 56);
  EXPECT_EQ(offset_of(&module.m_thread), 64);
  EXPECT_EQ(offset_of(&module.m_Stop), 72);

  // A pointer to a virtual member begins with 1 + its offset in the table; two destructors come first.
  const auto slot_of = [](auto member) {
    std::ptrdiff_t first_word = 0;
    std::memcpy(&first_word, &member, sizeof first_word);
    return (first_word - 1) / 8;
  };
  EXPECT_EQ(slot_of(&Cmodule::Init), 2);
  EXPECT_EQ(slot_of(&Cmodule::Run), 3);
  EXPECT_EQ(slot_of(&Cmodule::Terminate), 4);
  EXPECT_EQ(slot_of(&Cmodule::GetClassName), 5);
  EXPECT_EQ(slot_of(&Cmodule::Kill), 6);
}

TEST(Module, RunsOnItsThread) {
  Recorder recorder;
  EXPECT_EQ(recorder.calls_of_thread(), "Init Run Terminate ");
  EXPECT_TRUE(recorder.ran_on_other_thread());
  EXPECT_EQ(recorder.m_thread, nullptr);
  EXPECT_EQ(Recorder("", false).calls_of_thread(), "Init ");
}

TEST(Module, EndsItsThreadWithALineAfterAnException) {
  struct Case {
    const char* throws_in;
    const char* calls;
  };
  for (const Case& it : {Case{"Init", "Init "}, {"Run", "Init Run "}, {"Terminate", "Init Run Terminate "}}) {
    Child child([&](Gate&) { return Recorder(it.throws_in).calls_of_thread() == it.calls ? 0 : 1; },
                Child::Output::captured);
    EXPECT_EQ(child.exit_status(), 0);
    EXPECT_EQ(child.output(), "Uncaptured Exception\n");
  }
}

TEST(Module, TellsThatNoThreadIsToBeHad) {
  Child child([](Gate&) {
    pthread_attr_t attributes;
    pthread_attr_init(&attributes);
    pthread_attr_setstacksize(&attributes, std::size_t{1} << 47);
    pthread_setattr_default_np(&attributes);
    Cmodule module(plain_name);
    EXPECT_THROW(module.StartRun(), boost::thread_resource_error);
    return 0;
  });
  EXPECT_EQ(child.exit_status(), 0);
}

TEST(Module, CountsThoseAlive) {
  const int before = Cmodule::GetModuleCount();
  {
    std::vector<std::jthread> threads;
    for (int i = 0; i < 4; ++i) {
      threads.emplace_back([] {
        for (int round = 0; round < 200; ++round) {
          const Cmodule first(plain_name);
          auto* const second = new Cmodule(plain_name);
          second->Kill();
        }
      });
    }
  }
  EXPECT_EQ(Cmodule::GetModuleCount(), before);
  const Cmodule one(plain_name);
  EXPECT_EQ(Cmodule::GetModuleCount(), before + 1);
  kill_of(nullptr);
  EXPECT_EQ(Cmodule::module_count, before + 1);
}

TEST(Module, IsAskedToStop) {
  class Looper : public Cmodule {
   public:
    Looper() : Cmodule(plain_name) {}
    int Run() override {
      while (!std::atomic_ref<bool>(m_Stop).load() && !std::atomic_ref<bool>(m_bShouldStop).load()) Sleep(1);
      return 0;
    }
    bool Terminate() override {
      const auto kept = ended;
      kept->set_value();
      return true;
    }
    std::shared_ptr<std::promise<void>> ended = std::make_shared<std::promise<void>>();
  };
  for (const bool all : {false, true}) {
    auto looper = std::make_unique<Looper>();
    EXPECT_FALSE(looper->m_Stop);
    looper->Start();
    all ? Cmodule::StopAll() : looper->Stop();
    looper->ended->get_future().wait();
  }
  EXPECT_TRUE(Cmodule::m_bShouldStop);
  Cmodule::m_bShouldStop = false;
}

TEST(Module, CountsTheSecondsSinceTheLastAccess) {
  Cmodule module(plain_name);
  const auto before = static_cast<dword>(time(nullptr));
  const dword now = module.GetSecond();
  EXPECT_GE(now + 1, before);
  EXPECT_LE(now, static_cast<dword>(time(nullptr)));

  module.m_dwLastAccessTime = now - 1000;
  module.Leave();
  const dword once = module.m_dwWorkDuration;
  EXPECT_GE(once, 1000U);
  EXPECT_GE(module.m_dwLastWorkDuration, once);
  module.Leave();
  EXPECT_GE(module.m_dwWorkDuration, once + 1000);
  EXPECT_EQ(module.GetLassAccessTime(), now - 1000);
  module.Access();
  EXPECT_GE(module.GetLassAccessTime(), now);
}

TEST(Module, PassesOnThatItsLockFails) {
  Child child([](Gate&) {
    pthread_mutexattr_t checking;
    pthread_mutexattr_init(&checking);
    pthread_mutexattr_settype(&checking, PTHREAD_MUTEX_ERRORCHECK);
    pthread_mutex_init(Cmodule::s_mutex.native_handle(), &checking);
    auto* const module = new Cmodule(plain_name);
    const boost::unique_lock<boost::mutex> held(Cmodule::s_mutex);
    std::string what;
    try {
      const Cmodule another(plain_name);
    } catch (const boost::lock_error& error) {
      what = error.what();
    }
    EXPECT_EQ(what.rfind("boost: mutex lock failed in pthread_mutex_lock", 0), 0U) << what;
    EXPECT_THROW(Cmodule::GetModuleCount(), boost::lock_error);
    EXPECT_THROW(module->Kill(), boost::lock_error);
    return 0;
  });
  EXPECT_EQ(child.exit_status(), 0);
}

}  // namespace
}  // namespace cachet::test
