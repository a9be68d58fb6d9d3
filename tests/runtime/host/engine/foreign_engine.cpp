// A library that is the engine by its name alone.
extern "C" int OrtIsNotHere() { return 0; }
