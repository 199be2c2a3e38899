#include "frontend/session/controlserver.h"

#include "common/wholenumber.h"

#include <algorithm>
#include <chrono>
#include <string_view>

ControlServer::ControlServer(EventLoop& eventLoop, Channel first, const Descriptor& entrance,
                             Owner& whose)
    : owner(whose),
      loop(eventLoop),
      listener(entrance),
      door(eventLoop, entrance.get()),
      pause(eventLoop) {
    add(0, std::move(first));
    lines[0]->attends = true;
    listen();
}

ControlServer::~ControlServer() = default;

int ControlServer::present() const {
    return static_cast<int>(
        std::ranges::count_if(lines, [](const auto& each) { return each.second->attends; }));
}

void ControlServer::ask(const std::string& question) {
    const auto first = lines.find(0);
    if (first != lines.end()) first->second->channel.say("ask " + question);
}

void ControlServer::listen() {
    door.whenReadable([this] {
        if (auto channel = Channel::accept(listener)) {
            add(++lastNumber, std::move(*channel));
            return listen();
        }
        // A peer that cannot be accepted, for want of descriptors, goes on asking.
        pause.after(std::chrono::milliseconds(100), [this] { listen(); });
    });
}

void ControlServer::add(int id, Channel channel) {
    lines[id] = std::make_unique<Line>(loop, std::move(channel));
    waitToHear(id);
}

void ControlServer::waitToHear(int id) {
    lines[id]->stream.whenReadable([this, id] { hear(id); });
}

void ControlServer::hear(int id) {
    bool over = false;
    if (const auto text = lines[id]->channel.hear(over)) act(id, *text);
    if (!over) {
        waitToHear(id);
        return;
    }
    const bool vanished = lines[id]->attends;
    lines.erase(id);
    if (vanished) owner.onConsoleEnded(id == 0, VANISHED);
    if (id == 0) owner.onFirstGone();
}

void ControlServer::act(int id, const std::string& text) {
    Line& line = *lines[id];
    if (text == "attend") {
        line.attends = true;
    } else if (text == "left" || text == "hung up") {
        line.attends = false;
        const std::string answer = owner.onConsoleEnded(id == 0, text == "left" ? LEFT : HUNG_UP);
        if (!answer.empty()) line.channel.say(answer);
    } else if (text == "give up") {
        if (id == 0) owner.onGiveUp();
    } else if (text == "serve") {
        if (id == 0) owner.onServe();
    } else if (text == "go on") {
        if (id == 0) owner.onGoOn();
    } else if (text.starts_with("end ")) {
        const auto status = wholeNumber<int>(std::string_view(text).substr(4));
        if (status) owner.onEnd(*status);
    } else if (text == "facts") {
        line.channel.say(owner.facts());
    }
}
