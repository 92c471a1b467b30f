// Keeps one object between uses, so that the memory it has gathered serves again.
//
//     static Spare<ServiceInfoArray> spare;
//     std::unique_ptr<ServiceInfoArray> answer = spare.take();
//     ... fill and use the answer ...
//     spare.giveBack(std::move(answer));
//
// An object that is not given back, because an exception passed, is simply gone.
#ifndef QV_SPARE_H
#define QV_SPARE_H

#include <atomic>
#include <memory>

namespace qor::kevra {

// Safe to use from several threads at once, destruction apart. Nobody waits: a thread that finds
// the spare in use makes an object of its own.
template <class T>
class Spare {
  public:
    // The object as it was given back, contents included, or a new one.
    std::unique_ptr<T> take() {
        std::unique_ptr<T> object;
        exchange(object);
        if (object == nullptr) {
            object = std::make_unique<T>();
        }
        return object;
    }

    // Keeps the object; one that was kept already is released.
    void giveBack(std::unique_ptr<T> object) { exchange(object); }

    void drop() { giveBack(nullptr); }

  private:
    void exchange(std::unique_ptr<T>& object) {
        if (!inUse_.test_and_set(std::memory_order_acquire)) {
            kept_.swap(object);
            inUse_.clear(std::memory_order_release);
        }
    }

    std::atomic_flag inUse_ = ATOMIC_FLAG_INIT;
    // Touched only by the thread that set `inUse_`.
    std::unique_ptr<T> kept_;
};

}  // namespace qor::kevra

#endif  // QV_SPARE_H
