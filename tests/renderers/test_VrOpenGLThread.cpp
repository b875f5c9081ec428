// The funnel of GL work: work sent from other threads runs on the thread that initialised the
// funnel, in the order the provider takes it, and each sender returns only once its work ran;
// on the GL thread itself, and without a provider, work runs at once.

#include "renderers/VrOpenGLThread.h"

#include <gtest/gtest.h>

#include <deque>
#include <mutex>
#include <thread>
#include <vector>

namespace {

// A provider with a queue that the test's thread drains, as a viewer's event loop does.
struct QueueProvider : VrOpenGLThread::Provider {
  void enqueue(VrOpenGLThread::Task* task) override {
    std::lock_guard<std::mutex> hold(guard);
    tasks.push_back(task);
  }
  bool runOne() {
    VrOpenGLThread::Task* task = nullptr;
    {
      std::lock_guard<std::mutex> hold(guard);
      if (tasks.empty()) return false;
      task = tasks.front();
      tasks.pop_front();
    }
    task->run();
    task->setDone();
    return true;
  }
  std::mutex guard;
  std::deque<VrOpenGLThread::Task*> tasks;
};

TEST(VrOpenGLThread, WorkFromOtherThreadsRunsOnTheGLThread) {
  VrOpenGLThread& funnel = VrOpenGLThread::instance();
  const std::thread::id here = std::this_thread::get_id();
  std::thread::id ranOn;
  funnel.enqueueAndWait([&] { ranOn = std::this_thread::get_id(); });  // no provider: at once
  EXPECT_EQ(ranOn, here);

  QueueProvider provider;
  funnel.initialize(&provider);
  EXPECT_TRUE(funnel.isMainThread());
  constexpr int senders = 4;
  std::vector<std::thread::id> ranOnEach(senders);
  std::vector<int> sawMain(senders, 1);  // not vector<bool>: written from several threads
  std::vector<std::thread> threads;
  for (int k = 0; k < senders; ++k)
    threads.emplace_back([&, k] {
      sawMain[size_t(k)] = funnel.isMainThread();
      funnel.enqueueAndWait([&, k] { ranOnEach[size_t(k)] = std::this_thread::get_id(); });
    });
  int ran = 0;
  while (ran < senders)
    if (provider.runOne()) ++ran;
  for (std::thread& t : threads) t.join();
  for (int k = 0; k < senders; ++k) {
    EXPECT_EQ(ranOnEach[size_t(k)], here) << k;
    EXPECT_FALSE(sawMain[size_t(k)]) << k;
  }
  // On the GL thread the work does not go through the queue.
  funnel.enqueueAndWait([&] { ranOn = std::thread::id(); });
  EXPECT_EQ(ranOn, std::thread::id());
  EXPECT_TRUE(provider.tasks.empty());
  funnel.shutdown();
}

}  // namespace
