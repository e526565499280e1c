Output/Release/Obj/control/Controller.o: \
 /work/main/examples/library-and-app/control/Controller.cpp \
 /work/main/examples/library-and-app/control/Controller.hpp \
 /work/main/examples/library-and-app/control/Fixed.hpp \
 /usr/include/newlib/c++/12.2.1/cstdint \
 /usr/include/newlib/c++/12.2.1/arm-none-eabi/thumb/v7-m/nofp/bits/c++config.h \
 /usr/include/newlib/c++/12.2.1/arm-none-eabi/thumb/v7-m/nofp/bits/os_defines.h \
 /usr/include/newlib/c++/12.2.1/arm-none-eabi/thumb/v7-m/nofp/bits/cpu_defines.h \
 /usr/include/newlib/c++/12.2.1/pstl/pstl_config.h \
 /usr/lib/gcc/arm-none-eabi/12.2.1/include/stdint.h
