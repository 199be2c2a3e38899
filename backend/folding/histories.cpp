#include "backend/folding/histories.h"

#include <algorithm>
#include <functional>
#include <utility>

void Histories::clear() {
    nodeList = {};
    branches.clear();
    texts = {};
    textIndex.clear();
    bytes = 0;
    for (Root& root : rootList)
        root.child = none;
}

Histories::Page& Histories::pageOf(int client) {
    const std::size_t number = static_cast<std::size_t>(client / pageSize);
    if (number >= pages.size()) pages.resize(number + 1);
    auto& page = pages[number];
    if (!page) {
        page = std::make_unique<Page>();
        rootList.front().clients += pageSize;
    }
    return *page;
}

std::uint32_t Histories::age(Clock::time_point now) {
    if (nodeList.empty()) epoch = now;
    const auto since = std::chrono::duration_cast<std::chrono::milliseconds>(now - epoch).count();
    return static_cast<std::uint32_t>(std::max<decltype(since)>(since, 0));
}

// --- lines

std::uint32_t Histories::intern(std::string_view text) {
    const std::uint64_t hash = std::hash<std::string_view>()(text);
    const std::uint32_t known = textIndex.find(
        hash, [&](std::uint32_t id) { return texts[id].hash == hash && texts[id].text == text; });
    if (known != none) return known;
    const auto id = static_cast<std::uint32_t>(texts.size());
    texts.push_back({std::string(text), hash, -1});
    bytes += sizeof(Text) + text.size();
    textIndex.insert(hash, id);
    return id;
}

std::uint32_t Histories::childWith(Point from, std::uint32_t key, std::uint32_t born) {
    const std::uint32_t first = childOf(from);
    if (first != none && nodeList[first].key == key) return first;
    const std::uint64_t hash = IndexTable::hashOf(from, key);
    if (first != none) {
        const std::uint32_t known = branches.find(hash, [&](std::uint32_t each) {
            return nodeList[each].parent == from && nodeList[each].key == key;
        });
        if (known != none) return known;
    }
    const auto node = static_cast<std::uint32_t>(nodeList.size());
    nodeList.push_back({from, key, none, born});
    if (first == none)
        childOf(from) = node;
    else
        branches.insert(hash, node);
    return node;
}

Histories::Point Histories::step(Point from, std::string_view text, std::uint32_t cut,
                                 std::uint32_t born) {
    const std::uint32_t first = childOf(from);
    if (first != none && nodeList[first].cut() == cut && texts[nodeList[first].text()].text == text)
        return nodePoint(first);
    return nodePoint(childWith(from, intern(text) << 2 | cut, born));
}

void Histories::move(Page& page, std::uint32_t& cell, Point to) {
    const Point from = cell & ~awaitedBit;
    if (!isNode(from)) {
        --rootList[indexOf(from)].clients;
        if (cell & awaitedBit) --silent;
        page.spoken = true;
    }
    cell = (cell & awaitedBit) | to;
}

bool Histories::saidBy(int client, Point point) {
    const int before = std::exchange(texts[nodeList[indexOf(point)].text()].lastClient, client);
    return before != -1 && before != client;
}

// Where a client of this history goes with its next line, or with more of its last one.
Histories::Point Histories::next(Point from, std::string_view text, std::uint32_t cut,
                                 std::uint32_t born) {
    if (!(cut & REST)) return step(from, text, cut, born);
    if (!isNode(from))
        return step(from, text, rootList[indexOf(from)].half >= 0 ? cut : cut & HALF, born);
    const Node half = nodeList[indexOf(from)];
    if (!(half.cut() & HALF)) return step(from, text, cut & HALF, born);
    return step(half.parent, texts[half.text()].text + std::string(text),
                (half.cut() & REST) | (cut & HALF), half.born);
}

bool Histories::add(int client, std::string_view text, std::uint32_t cut, Clock::time_point now) {
    const std::uint32_t born = age(now);
    Page& page = pageOf(client);
    std::uint32_t& cell = page.cells[static_cast<std::size_t>(client % pageSize)];
    const Point to = next(cell & ~awaitedBit, text, cut, born);
    move(page, cell, to);
    return saidBy(client, to);
}

bool Histories::add(const ClientSet& clients, std::string_view text, std::uint32_t cut,
                    Clock::time_point now) {
    const std::uint32_t born = age(now);
    Point from = none, to = none;
    bool merged = false;
    for (const ClientSet::Range& run : clients.runs()) {
        for (int id = run.first; id <= run.last; ++id) {
            Page& page = pageOf(id);
            std::uint32_t& cell = page.cells[static_cast<std::size_t>(id % pageSize)];
            if ((cell & ~awaitedBit) != from) {
                from = cell & ~awaitedBit;
                to = next(from, text, cut, born);
                merged |= saidBy(clients.front(), to);
            }
            move(page, cell, to);
        }
    }
    return merged;
}

// --- who is awaited

void Histories::await(const ClientSet& clients) {
    for (const int id : clients) {
        std::uint32_t& cell = cellOf(id);
        if (cell & awaitedBit) continue;
        ++awaitedCount;
        if (!isNode(cell)) ++silent;
        cell |= awaitedBit;
    }
}

void Histories::answered(int client) {
    std::uint32_t& cell = cellOf(client);
    if (!(cell & awaitedBit)) return;
    cell &= ~awaitedBit;
    --awaitedCount;
    if (!isNode(cell)) --silent;
}

// --- what leaves

std::vector<Histories::Run> Histories::runs() const {
    std::vector<Run> found;
    for (std::size_t number = 0; number < pages.size(); ++number) {
        if (!pages[number] || !pages[number]->spoken) continue;
        std::uint32_t last = 0;
        int id = static_cast<int>(number) * pageSize;
        for (const std::uint32_t cell : pages[number]->cells) {
            if (isNode(cell)) {
                if (cell == last)
                    ++found.back().last;
                else
                    found.push_back({id, id, cell & ~awaitedBit, (cell & awaitedBit) != 0});
            }
            last = cell;
            ++id;
        }
    }
    return found;
}

std::uint32_t Histories::rootFor(int last, int half) {
    const auto [known, added] = rootIndex.try_emplace({last, half});
    if (!added) return known->second;
    if (freeRoots.empty()) {
        rootList.emplace_back();
        freeRoots.push_back(static_cast<std::uint32_t>(rootList.size()) - 1);
    }
    const std::uint32_t root = known->second = freeRoots.back();
    freeRoots.pop_back();
    rootList[root].last = last;
    rootList[root].half = half;
    return root;
}

void Histories::dropUnusedRoots() {
    std::erase_if(rootIndex, [this](const auto& each) {
        const std::uint32_t root = each.second;
        if (root == 0 || rootList[root].clients > 0 || rootList[root].child != none) return false;
        freeRoots.push_back(root);
        return true;
    });
}

void Histories::leave(const std::vector<Run>& runs, const std::vector<Sent>& sentAs) {
    const std::vector<Node> old = std::move(nodeList);
    std::vector<Text> oldTexts = std::move(texts);
    clear();
    // What somebody has still said: a half line that was continued meanwhile may be nobody's.
    std::vector<bool> alive(old.size());
    // Roots are needed only where clients or their next lines stand.
    std::vector<bool> holds(old.size());
    for (const Run& run : runs)
        alive[indexOf(run.point)] = holds[indexOf(run.point)] = true;
    for (std::size_t i = old.size(); i-- > 0;) {
        if (!alive[i] || !isNode(old[i].parent)) continue;
        alive[indexOf(old[i].parent)] = true;
        if (!sentAs[i].sent) holds[indexOf(old[i].parent)] = true;
    }
    std::vector<Point> moved(old.size());
    std::vector<std::uint32_t> textOf(oldTexts.size(), none);
    for (std::size_t i = 0; i < old.size(); ++i) {
        if (!alive[i]) continue;
        const Node& node = old[i];
        if (sentAs[i].sent) {
            if (holds[i]) moved[i] = rootPoint(rootFor(sentAs[i].last, sentAs[i].half));
            continue;
        }
        std::uint32_t& text = textOf[node.text()];
        if (text == none) {
            Text& kept = oldTexts[node.text()];
            text = static_cast<std::uint32_t>(texts.size());
            bytes += sizeof(Text) + kept.text.size();
            texts.push_back(std::move(kept));
            textIndex.insert(texts[text].hash, text);
        }
        const Point parent = isNode(node.parent) ? moved[indexOf(node.parent)] : node.parent;
        const std::uint32_t now = childWith(parent, text << 2 | node.cut(), node.born);
        nodeList[now].born = std::min(nodeList[now].born, node.born);
        moved[i] = nodePoint(now);
    }
    for (const auto& page : pages)
        if (page) page->spoken = false;
    for (const Run& run : runs) {
        const Point to = moved[indexOf(run.point)];
        const auto width = static_cast<std::size_t>(run.last - run.first) + 1;
        Page& page = pageOf(run.first); // a run does not cross pages
        std::fill_n(page.cells.begin() + run.first % pageSize, width,
                    to | (run.awaited ? awaitedBit : 0));
        if (isNode(to)) {
            page.spoken = true;
            continue;
        }
        rootList[indexOf(to)].clients += width;
        if (run.awaited) silent += width;
    }
    dropUnusedRoots();
}
