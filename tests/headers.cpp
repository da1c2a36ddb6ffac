// The program that owns the compiled form of the headers which every test program includes.
int main()
{
    return 0;
}
