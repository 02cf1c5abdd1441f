#include "cfb_vornak/Sids_Text.h"

#include <gtest/gtest.h>

namespace vrk {
namespace {

TEST(SidsText, ChainWithArrowsAndClosingBracket) {
    EXPECT_EQ(print_sids_list({3, 1, ENDOFCHAIN}),
              "------------------------print_sids_list：\n[3->1->4294967294 ]\n");
    EXPECT_EQ(print_sids_list({FREESECT}),
              "------------------------print_sids_list：\n[4294967295 ]\n");
}

TEST(SidsText, EmptyChainGivesTheOpeningOnly) {
    EXPECT_EQ(print_sids_list({}), "------------------------print_sids_list：\n[");
}

}  // namespace
}  // namespace vrk
