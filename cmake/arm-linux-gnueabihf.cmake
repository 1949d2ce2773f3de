# Cross-builds for the controller's 32-bit ARM (armhf) with Debian's
# crossbuild-essential-armhf and the armhf builds of the libraries
# (multiarch, /usr/lib/arm-linux-gnueabihf). Programs the build or the tests
# run go through qemu-user: plain qemu-arm, which finds the multiarch loader
# and C library of libc6:armhf. Do not add "-L /usr/arm-linux-gnueabihf": the
# cross package's loader does not match the multiarch C library and the
# process crashes at its first thread.
set(CMAKE_SYSTEM_NAME Linux)
set(CMAKE_SYSTEM_PROCESSOR arm)
set(CMAKE_C_COMPILER arm-linux-gnueabihf-gcc)
set(CMAKE_CXX_COMPILER arm-linux-gnueabihf-g++)
set(CMAKE_LIBRARY_ARCHITECTURE arm-linux-gnueabihf)

# find_library and find_package look in /usr/lib/arm-linux-gnueabihf; the
# headers in /usr/include are the same for every architecture.
# "-L /": no path prefix. Without it qemu-arm translates every absolute path
# of every system call under its default prefix, behind one lock that is not
# released in a forked child; a child forked while another thread was in
# such a call hung before running its program (its request never answered).
set(CMAKE_CROSSCOMPILING_EMULATOR qemu-arm -L /)
