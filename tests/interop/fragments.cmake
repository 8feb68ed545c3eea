# Fragmented files of FFmpeg's.
zmv_add_test(NAME interop_fragments SOURCES fragments_test.cpp LIBS zmv_samples PkgConfig::LIBAV LABELS interop)
