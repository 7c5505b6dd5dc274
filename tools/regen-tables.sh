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
$gen "$root/g723" src/kernels lpc_tables CosineTbl_G723 ReorderedCOS BandwidthExpansionTbl
$gen "$root/g729" src/g729 lsp_tables \
    LSPCode1 LSPCode2 fg fg_sum fg_sum_inv noise_fg noise_fg_sum noise_fg_sum_inv \
    PtrTab_1 PtrTab_2
$gen "$root/numeric" tests/g729_lsp lsp_test_hp a140 b140
$gen "$root/g729" tests/g729_lsp lsp_test_reset freq_prev_reset
$gen "$root/gsmfr" src/gsmfr gsmfr_tables \
    gsm_A gsm_B gsm_MIC gsm_MAC gsm_INVA gsm_DLB gsm_QLB gsm_NRFAC gsm_FAC
# The assembled coder in apps/ links only the public library: its own copy.
$gen "$root/gsmfr" apps/coders gsmfr_coder_tables \
    gsm_A=coder_gsm_A gsm_B=coder_gsm_B gsm_MIC=coder_gsm_MIC gsm_MAC=coder_gsm_MAC \
    gsm_INVA=coder_gsm_INVA gsm_DLB=coder_gsm_DLB gsm_QLB=coder_gsm_QLB \
    gsm_NRFAC=coder_gsm_NRFAC gsm_FAC=coder_gsm_FAC
$gen "$root/g722" src/g72x g722_tables table_ila table_misil table_quant_q6 \
    table_quant_oq4 table_quant_oq5 table_quant_oq6 table_quant_ril4 table_quant_ril5 \
    table_quant_ril6 table_quant_risi4 table_quant_risi5 table_quant_risi6
$gen "$root/g729" src/g729 post_tables tab_hup_s tab_hup_l facGamma1_pst facGamma2_pst \
    phImpLow phImpMid
$gen "$root/g729" src/g729 pitch_tables inter_3 inter_3l
$gen "$root/g729" src/g729 gain_tables gbk1 gbk2 gbk1_6k gbk2_6k
$gen "$root/g729" tests/g729_gain gain_test_tables map1 map2 map1_6k map2_6k
$gen "$root/g729" src/g729 fcb_tables trackTable0 trackTable1 grayEncode
$gen "$root/g726" src/g72x g726_tables \
    reconst16_dqln reconst24_dqln reconst32_dqln reconst40_dqln \
    sfa_tab16_wi sfa_tab24_wi sfa_tab32_wi sfa_tab40_wi \
    asc_tab16_map asc_tab24_map asc_tab32_map asc_tab40_map \
    _u2l=u2l _a2l=a2l u2LT u2GT a2LT a2GT
$gen "$root/g729" src/g729 fcb_tables trackTable0 trackTable1 grayEncode
$gen "$root/g729" src/g729 pitch_tables inter_3 inter_3l
$gen "$root/g729" src/g729 gain_tables gbk1 gbk2 gbk1_6k gbk2_6k
$gen "$root/g729" tests/g729_gain gain_test_tables map1 map2 map1_6k map2_6k
$gen "$root/g729" src/g729 post_tables tab_hup_s tab_hup_l facGamma1_pst facGamma2_pst \
    phImpLow phImpMid
$gen "$root/numeric" apps/coders g729_filter_tables a140 b140 a100 b100
$gen "$root/g729" apps/coders g729_tables freq_prev_reset map1 map2
$gen "$root/g729" src/g729 hybrid_tables hw
$gen "$root/g729" apps/coders g729d_tables map1_6k map2_6k
$gen "$root/g7221" src/g72x g7221_tables \
    cnstSamples2MLT_G722_7kHz cnstSamples2MLT_G722_14kHz \
    cnstMLT2Samples_G722_7kHz cnstMLT2Samples_G722_14kHz \
    cnstAnalBias_G722 cnstSynthesisBias7khz_G722 cnstDither_G722_7kHz cnstDither_G722_14kHz \
    cnstCosSinFwd_G722 cosTable dct_core_a=cnstDct10Fwd_G722 dct_core_s=cnstDct10Inv_G722 \
    cnstStdDeviationInv_G722 \
    cnstMltSqvhBitcountCtg0_G722 cnstMltSqvhBitcountCtg1_G722 cnstMltSqvhBitcountCtg2_G722 \
    cnstMltSqvhBitcountCtg3_G722 cnstMltSqvhBitcountCtg4_G722 cnstMltSqvhBitcountCtg5_G722 \
    cnstMltSqvhBitcountCtg6_G722 \
    cnstMltSqvhCodeCtg0_G722 cnstMltSqvhCodeCtg1_G722 cnstMltSqvhCodeCtg2_G722 \
    cnstMltSqvhCodeCtg3_G722 cnstMltSqvhCodeCtg4_G722 cnstMltSqvhCodeCtg5_G722 \
    cnstMltSqvhCodeCtg6_G722
$gen "$root/g728" src/g728 g728_tables shape_all g2 gsq
$gen "$root/g728" apps/coders g728_coder_tables \
    shape_all=coder_g728_shape g2=coder_g728_g2 wnr=coder_g728_wnr wnrg=coder_g728_wnrg \
    wnrw=coder_g728_wnrw g728fp_iw=coder_g728_iw g728fp_iwg=coder_g728_iwg \
    iwwz=coder_g728_iwwz iwwp=coder_g728_iwwp iwpfz=coder_g728_iwpfz iwpfp=coder_g728_iwpfp
$gen "$root/numeric" apps/coders g729b_tables Log2Table
$gen "$root/amrwb" src/amrwb isf_tables \
    QCdbk1ISFTbl QCdbk2ISFTbl QCdbk21ISFTbl QCdbk22ISFTbl QCdbk23ISFTbl QCdbk24ISFTbl \
    QCdbk25ISFTbl QCdbk21ISF36bTbl QCdbk22ISF36bTbl QCdbk23ISF36bTbl QCdbk1ISFnoiseTbl \
    QCdbk2ISFnoiseTbl QCdbk3ISFnoiseTbl QCdbk4ISFnoiseTbl QCdbk5ISFnoiseTbl cosTbl slopeTbl \
    gridTbl
$gen "$root/gsmamr" src/gsmamr gsmamr_lp_tables \
    win160_80 win232_8 dico1_lsf1 dico2_lsf1 dico3_lsf1 dico4_lsf1 dico5_lsf1 \
    dico1_lsf2 dico2_lsf2 dico3_lsf2 mr515_3_lsf mr795_1_lsf past_rq_init \
    twd_tbl ii_table bitrevTab
$gen "$root/gsmamr" src/gsmamr gsmamr_pitch_tables corrweight inter_6new
$gen "$root/gsmamr" tests/gsmamr_pitch amr_pitch_test_tables inter_6.pred_lt.published=inter61
$gen "$root/g723" src/g723 g723_exc_tables AdCdbkGainTblHighRate AdCdbkGainTblLowRate
$gen "$root/g723" src/g723 lp_lsf_tables LSPCdbkFirstBand LSPCdbkSecondBand LSPCdbkThirdBand
$gen "$root/g723" apps/coders g723_coder_tables \
    PerFiltZeroTable=coder_g723_PerFiltZero PerFiltPoleTable=coder_g723_PerFiltPole \
    PostFiltZeroTable=coder_g723_PostFiltZero PostFiltPoleTable=coder_g723_PostFiltPole \
    tabgain85=coder_g723_tabgain85 tabgain170=coder_g723_tabgain170 \
    epsi170=coder_g723_epsi170 gain170=coder_g723_gain170
$gen "$root/amrwb" src/amrwb amrwb_pitch_tables \
    inter4_1Tbl inter4_2Tbl CorrWgtTbl gain_sq6Tbl gain_sq7Tbl pitchSq6 pitchSq7
