#include "backend/os/childprocess.h"
#include "backend/os/rankvariables.h"
#include "tests/support/testing.h"

namespace {

using Environment = std::vector<std::pair<std::string, std::string>>;

TEST(RankVariables, TheFirstWholeNumberIsTheRank) {
    const struct {
        Environment environment;
        int rank;
    } cases[] = {
        {{}, -1},
        {{{"SLURM_PROCID", "0"}}, 0},
        {{{"SLURM_PROCID", "4"}, {"PMIX_RANK", "3"}, {"PMI_RANK", "2"}}, 2},
        {{{"OMPI_COMM_WORLD_RANK", "3abc"}, {"PMI_RANK", ""}, {"PMIX_RANK", "5"}}, 5},
        {{{"OMPI_COMM_WORLD_RANK", "-2"}, {"PMI_RANK", " 1"}, {"PMIX_RANK", "4294967296"}}, -1},
    };
    for (const auto& each : cases) {
        ChildProcess task;
        task.start({.argv = {"sleep", "100"}, .environment = each.environment});
        EXPECT_EQ(RankVariables::rankOf(task.pid()), each.rank);
    }
}

} // namespace
