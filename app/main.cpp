#include "app/ZentrixApp.h"
#include "runtime/CDebug.h"

int main(int argc, char** argv) {
  if (g_Debug.IsEnabled()) {
    g_Debug.Print(2, "\nZentrix           : %d command line args:", argc);
    for (int i = 0; i < argc; ++i) {
      if (argv[i]) g_Debug.Print(2, "\nZentrix           :   Arg %d: \"%s\"", i, argv[i]);
    }
  }
  ZentrixApp app;
  return app.run(argc, argv);
}
