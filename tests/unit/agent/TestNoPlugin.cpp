// A library that can be loaded and registers nothing.
extern "C" int testNoPlugin();
int testNoPlugin() {
  return 0;
}
