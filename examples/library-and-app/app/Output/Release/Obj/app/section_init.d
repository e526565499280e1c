Output/Release/Obj/app/section_init.o: \
 /work/main/build/release/targets/startup/section_init.c \
 /work/main/build/release/targets/startup/section_init.h \
 /usr/lib/gcc/arm-none-eabi/12.2.1/include/stdint.h
