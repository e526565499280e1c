Output/Release/Obj/app/cortexm_startup.o: \
 /work/main/build/release/targets/startup/cortexm_startup.c \
 /work/main/build/release/targets/startup/section_init.h \
 /usr/lib/gcc/arm-none-eabi/12.2.1/include/stdint.h
