// What loads when there is nothing to load but the language's own library.
extern "C" int benchRun(int /*argumentCount*/, char** /*arguments*/) { return 0; }
