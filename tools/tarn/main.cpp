#include "Command.h"

int main(int argc, char** argv)
{
    return tarn::tool::RunTarn(argc, argv);
}
