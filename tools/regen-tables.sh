#!/bin/sh
# Regenerates every committed table source from the published table data.
# Usage: tools/regen-tables.sh [TABLE_ROOT]   (default ../shared/tables)
set -eu
root=${1:-../shared/tables}
gen="python3 $(dirname "$0")/gentables.py"
$gen "$root/numeric" src/numeric numeric_tables \
    Log2Table tabpow tabsqr tabsqr_d wlag hamwindow w_eval_60 w_eval_50 \
    cos15 slope_cos slope_cos15 acos12
$gen "$root/g723" src/kernels kernel_tables HammingWindowTbl_G723 BinomWindowCoeffTbl_G723
$gen "$root/numeric" tests/filter filter_test_tables a140 b140 a100 b100
$gen "$root/g726" src/g72x g726_tables \
    reconst16_dqln reconst24_dqln reconst32_dqln reconst40_dqln \
    sfa_tab16_wi sfa_tab24_wi sfa_tab32_wi sfa_tab40_wi \
    asc_tab16_map asc_tab24_map asc_tab32_map asc_tab40_map \
    _u2l=u2l _a2l=a2l u2LT u2GT a2LT a2GT
