// Compiled as the library is, for flags that leave no mark of their own: scripts/check-elf looks
// into the code.

extern "C" {

void use(void* memory);

// Each page of the frame is touched, so that none steps over the guard page of a stack.
void largeFrame() {
    __attribute__((uninitialized)) char bytes[1 << 18];
    use(bytes);
}

// Zero from the start.
void unsetVariable() {
    int number;
    use(&number);
}
}
