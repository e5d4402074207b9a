#include "Command.h"
#include "Requester.h"

#include <cstdlib>

int main(int argc, char** argv)
{
    const int status = tarn::tool::RunTarn(argc, argv);
    if (tarn::tool::Requester::HasLeftAny())
        std::_Exit(status); // a thread still waits for its answer
    return status;
}
