# Run by cpack before it packs a build made with the published TEST-ONLY certificate or keys: stops it.
message(FATAL_ERROR "This build uses the published test certificate or keys (tests/data/): anyone could sign a "
        "client package that its plug-in installs with the user's password. Configure the build with your own "
        "-DPASSWAY_SIGNING_CERT, -DPASSWAY_PRESHARED_KEY and -DPASSWAY_PRELOGON_KEY, or, for a test package "
        "that says so in its name, -DPASSWAY_TEST_PACKAGE=ON.")
