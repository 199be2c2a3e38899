#include "backend/folding/commonlines.h"

#include <algorithm>

namespace {

// Bounds of the search: differences, and steps a line.
constexpr int maxDifferences = 1000;
constexpr std::size_t stepsPerLine = 64;
constexpr std::size_t freeSteps = 1024;

class Search {
  public:
    Search(std::span<const std::uint32_t> ofLines, const TextPlaces& ofPlaces)
        : lines(ofLines), places(ofPlaces) {}

    std::vector<CommonLine> run() {
        lineEnd = lines.size();
        placeEnd = places.size();
        while (begin < std::min(lineEnd, placeEnd) && same(begin, begin)) {
            found.push_back({begin, begin});
            ++begin;
        }
        std::vector<CommonLine> tail;
        while (lineEnd > begin && placeEnd > begin && same(lineEnd - 1, placeEnd - 1))
            tail.push_back({--lineEnd, --placeEnd});
        between();
        found.insert(found.end(), tail.rbegin(), tail.rend());
        return std::move(found);
    }

  private:
    std::span<const std::uint32_t> lines;
    const TextPlaces& places;
    // What is left between the common beginning and the common end.
    std::size_t begin = 0, lineEnd = 0, placeEnd = 0;
    std::vector<CommonLine> found;
    // For each number of differences d, how far the lines go on the diagonals -d, -d + 2, ..., d.
    std::vector<std::vector<int>> reached;

    bool same(std::size_t line, std::size_t place) const {
        return places.holds(place, lines[line]);
    }

    int before(int d, int diagonal) const {
        if (diagonal < -d || diagonal > d) return -1;
        return reached[static_cast<std::size_t>(d)][static_cast<std::size_t>((diagonal + d) / 2)];
    }
    // Whether the way to the diagonal comes from the one above: by a place that no line goes with.
    bool fromAbove(int d, int diagonal) const {
        return diagonal == -d ||
               (diagonal != d && before(d - 1, diagonal - 1) < before(d - 1, diagonal + 1));
    }

    void between() {
        const int width = static_cast<int>(lineEnd - begin);
        const int height = static_cast<int>(placeEnd - begin);
        if (width == 0 || height == 0) return;
        std::size_t steps = (lineEnd + placeEnd - 2 * begin) * stepsPerLine + freeSteps;
        for (int d = 0; d <= std::min(width + height, maxDifferences); ++d) {
            std::vector<int> row(static_cast<std::size_t>(d) + 1, -1);
            int best = -1, bestSum = -1;
            for (int k = -d; k <= d; k += 2) {
                int x = 0;
                if (d > 0) x = fromAbove(d, k) ? before(d - 1, k + 1) : before(d - 1, k - 1) + 1;
                const int start = x;
                while (x < width && x - k < height &&
                       same(begin + static_cast<std::size_t>(x),
                            begin + static_cast<std::size_t>(x - k)))
                    ++x;
                row[static_cast<std::size_t>((k + d) / 2)] = x;
                const std::size_t cost = static_cast<std::size_t>(x - start) + 1;
                steps -= std::min(steps, cost);
                if (x <= width && x - k <= height && 2 * x - k > bestSum) {
                    bestSum = 2 * x - k;
                    best = k;
                }
            }
            reached.push_back(std::move(row));
            if (bestSum == width + height || steps == 0 || d == maxDifferences)
                return walkBack(d, best);
        }
    }

    void walkBack(int d, int k) {
        const std::size_t first = found.size();
        for (int x = before(d, k); d >= 0; --d) {
            int from = 0;
            int next = k;
            if (d > 0) {
                const bool above = fromAbove(d, k);
                next = above ? k + 1 : k - 1;
                from = above ? before(d - 1, next) : before(d - 1, next) + 1;
            }
            while (x > from) {
                --x;
                found.push_back(
                    {begin + static_cast<std::size_t>(x), begin + static_cast<std::size_t>(x - k)});
            }
            if (d > 0) x = before(d - 1, next);
            k = next;
        }
        std::reverse(found.begin() + static_cast<std::ptrdiff_t>(first), found.end());
    }
};

} // namespace

bool TextPlaces::holds(std::size_t place, std::uint32_t text) const {
    const std::size_t from = place == 0 ? 0 : ends[place - 1];
    return std::find(texts.begin() + static_cast<std::ptrdiff_t>(from),
                     texts.begin() + static_cast<std::ptrdiff_t>(ends[place]),
                     text) != texts.begin() + static_cast<std::ptrdiff_t>(ends[place]);
}

std::vector<CommonLine> commonLines(std::span<const std::uint32_t> lines,
                                    const TextPlaces& places) {
    return Search(lines, places).run();
}
