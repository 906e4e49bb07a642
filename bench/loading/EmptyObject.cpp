// An empty module, whose loading brings in only the language's own library.
extern "C" int benchRun(int /*argumentCount*/, char** /*arguments*/) { return 0; }
