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
$gen "$root/g723" src/kernels lpc_tables CosineTbl_G723 ReorderedCOS BandwidthExpansionTbl
$gen "$root/g729" src/g729 lsp_tables \
    LSPCode1 LSPCode2 fg fg_sum fg_sum_inv noise_fg noise_fg_sum noise_fg_sum_inv \
    PtrTab_1 PtrTab_2
$gen "$root/numeric" tests/g729_lsp lsp_test_hp a140 b140
$gen "$root/g729" tests/g729_lsp lsp_test_reset freq_prev_reset
$gen "$root/g729" src/g729 fcb_tables trackTable0 trackTable1 grayEncode
$gen "$root/g729" src/g729 pitch_tables inter_3 inter_3l
$gen "$root/g729" src/g729 gain_tables gbk1 gbk2 gbk1_6k gbk2_6k
$gen "$root/g729" tests/g729_gain gain_test_tables map1 map2 map1_6k map2_6k
$gen "$root/g729" src/g729 post_tables tab_hup_s tab_hup_l facGamma1_pst facGamma2_pst \
    phImpLow phImpMid
$gen "$root/numeric" apps/coders g729_filter_tables a140 b140 a100 b100
$gen "$root/g729" apps/coders g729_tables freq_prev_reset map1 map2
