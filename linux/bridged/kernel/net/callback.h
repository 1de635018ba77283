// A reference to something that can be called, for results that come one at a time. It owns nothing: what it refers to
// must live until the function that it was passed to has returned.
#pragma once

template <class> class callback_ref;

template <class... Arguments> class callback_ref<void(Arguments...)> {
public:
    // Calls nothing.
    callback_ref() = default;

    // Takes lambdas where a callback is expected, hence not explicit.
    template <class Callable>
    callback_ref(const Callable &callable)
        : object_(&callable), call_([](const void *object, Arguments... arguments) {
              (*static_cast<const Callable *>(object))(arguments...);
          }) {}

    void operator()(Arguments... arguments) const {
        if (call_ != nullptr)
            call_(object_, arguments...);
    }

private:
    const void *object_ = nullptr;
    void (*call_)(const void *, Arguments...) = nullptr;
};
