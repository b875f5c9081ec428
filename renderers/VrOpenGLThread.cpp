#include "renderers/VrOpenGLThread.h"

#include <memory>

namespace {

class FunctionTask : public VrOpenGLThread::Task {
 public:
  explicit FunctionTask(const std::function<void()>& work) : work(work) {}
  void run() override { work(); }

 private:
  const std::function<void()>& work;
};

}  // namespace

VrOpenGLThread& VrOpenGLThread::instance() {
  static VrOpenGLThread funnel;
  return funnel;
}

void VrOpenGLThread::initialize(Provider* glProvider) {
  std::lock_guard<std::mutex> hold(guard);
  provider = glProvider;
  mainThread = std::this_thread::get_id();
}

void VrOpenGLThread::shutdown() {
  std::lock_guard<std::mutex> hold(guard);
  provider = nullptr;
  mainThread = std::thread::id();
}

bool VrOpenGLThread::isMainThread() const {
  std::lock_guard<std::mutex> hold(guard);
  return !provider || std::this_thread::get_id() == mainThread;
}

void VrOpenGLThread::enqueueAndWait(const std::function<void()>& work) {
  internalEnqueueAndWait(new FunctionTask(work));
}

void VrOpenGLThread::internalEnqueueAndWait(Task* task) {
  std::unique_ptr<Task> owned(task);
  Provider* to = nullptr;
  {
    std::lock_guard<std::mutex> hold(guard);
    if (provider && std::this_thread::get_id() != mainThread) to = provider;
  }
  if (!to) {
    task->run();
    task->setDone();
    return;
  }
  to->enqueue(task);
  while (!task->isDone()) std::this_thread::yield();
}
