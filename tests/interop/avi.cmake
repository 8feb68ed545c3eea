#AVI : ours read by others, others' read by us, and what a power cut leaves.
zmv_add_test(NAME interop_avi_decode SOURCES avi_decode_test.cpp LIBS zmv_samples PkgConfig::LIBAV LABELS interop)
    zmv_add_test(NAME interop_avi_foreign SOURCES avi_foreign_test.cpp LIBS zmv_samples PkgConfig::LIBAV LABELS interop)
        zmv_add_test(
            NAME interop_avi_built SOURCES avi_built_test.cpp LIBS zmv_scripted PkgConfig::LIBAV LABELS interop)
            zmv_add_test(NAME interop_avi_cut SOURCES avi_cut_test.cpp LIBS zmv_samples LABELS interop)
