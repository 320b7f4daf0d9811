// A library that is no driver: nothing in it is called gdd.

extern "C" int hollow();

int hollow() {
    return 0;
}
