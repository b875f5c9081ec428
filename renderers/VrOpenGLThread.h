#pragma once
// VrOpenGLThread: the funnel of GL work into the one thread that owns the GL context. The
// program that owns the context (a viewer's event loop, a host's user-interface thread) calls
// `initialize` on that thread with a Provider, its way of being handed work; any other thread
// then runs GL work through `enqueueAndWait`, which hands a Task to the provider and waits until
// the provider has run it. On the GL thread itself, and while no provider is installed, the work
// runs at once on the calling thread.
//
// The provider must run every task it was handed (and set it done) before `shutdown`, or the
// threads waiting on them never return.

#include <atomic>
#include <functional>
#include <mutex>
#include <thread>

class VrOpenGLThread {
 public:
  /// One piece of GL work.
  class Task {
   public:
    virtual ~Task() = default;
    virtual void run() = 0;
    bool isDone() const { return done.load(std::memory_order_acquire); }
    void setDone() { done.store(true, std::memory_order_release); }

   private:
    std::atomic<bool> done{false};
  };

  /// How the GL thread is handed work: `enqueue` is called from any thread; the GL thread later
  /// calls the task's `run` and then `setDone`, after which the task is no longer its to touch.
  class Provider {
   public:
    virtual ~Provider() = default;
    virtual void enqueue(Task* task) = 0;
  };

  static VrOpenGLThread& instance();

  /// Makes the calling thread the GL thread, reached through `provider`.
  void initialize(Provider* provider);
  /// Forgets the provider; work runs on its calling thread again.
  void shutdown();
  /// Whether the calling thread is the GL thread (true while none is set).
  bool isMainThread() const;

  /// Runs `work` on the GL thread and returns when it has run.
  void enqueueAndWait(const std::function<void()>& work);
  /// Hands `task` to the provider, yields until it is done and deletes it; runs it at once on
  /// the GL thread or without a provider.
  void internalEnqueueAndWait(Task* task);

 private:
  VrOpenGLThread() = default;

  mutable std::mutex guard;
  Provider* provider = nullptr;
  std::thread::id mainThread;
};
