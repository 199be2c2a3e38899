#include "backend/os/rankvariables.h"

#include "backend/os/processtree.h"
#include "common/wholenumber.h"

#include <algorithm>

int RankVariables::valueOf(const char* text) {
    return text ? std::max(-1, wholeNumber<int>(text).value_or(-1)) : -1;
}

int RankVariables::rankOf(pid_t process) {
    for (const Names& names : all) {
        const auto text = ProcessTree::variable(process, names.rank);
        const int rank = text ? valueOf(text->c_str()) : -1;
        if (rank >= 0) return rank;
    }
    return -1;
}
