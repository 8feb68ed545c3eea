# The codec helpers beside FFmpeg's.
zmv_add_test(NAME interop_codec_config SOURCES codec_config_test.cpp LIBS zmvplatform PkgConfig::LIBAV LABELS interop)
