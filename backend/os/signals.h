#pragma once

#include <asio/io_context.hpp>
#include <asio/signal_set.hpp>

#include <functional>
#include <initializer_list>
#include <utility>

/// Signals of this process as events of a loop, from its construction on. One thread.
class Signals {
  public:
    Signals(asio::io_context& loop, std::initializer_list<int> numbers,
            std::function<void(int number)> handler)
        : handle(std::move(handler)), set(loop) {
        for (const int number : numbers)
            set.add(number);
        wait();
    }
    void add(int number) { set.add(number); }

  private:
    const std::function<void(int number)> handle;
    asio::signal_set set;

    void wait() {
        set.async_wait([this](const asio::error_code& fault, int number) {
            if (fault) return;
            handle(number);
            wait();
        });
    }
};
