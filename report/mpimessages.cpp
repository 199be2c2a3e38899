#include "report/mpimessages.h"

#include "common/wholenumber.h"

#include <algorithm>
#include <cstddef>
#include <optional>

void MpiMessages::add(std::string_view line) {
    // The rank stands behind the second text, which comes somewhere behind the first.
    static constexpr struct {
        std::string_view before, between;
        bool isError;
    } forms[] = {
        {"MPI_ABORT was invoked on ", "rank ", false},
        {"Abort(", ") on node ", false},
        {"application called MPI_Abort(", ") - process ", false},
        {"*** reported by process [", ",", true},
    };
    const bool isError = line.find("Fatal error in ") != line.npos;
    for (const auto& form : forms) {
        std::size_t at = line.find(form.before);
        if (at == line.npos) continue;
        at = line.find(form.between, at + form.before.size());
        if (at == line.npos) continue;
        const std::string_view rest = line.substr(at + form.between.size());
        const auto id = wholeNumber<int>(
            rest.substr(0, std::min(rest.find_first_not_of("0123456789"), rest.size())));
        if (id) (form.isError || isError ? errors : aborts).insert(*id);
    }
}

void MpiMessages::keepOnly(const ClientSet& clients) {
    for (ClientSet* each : {&aborts, &errors})
        *each = each->intersection(clients);
}
