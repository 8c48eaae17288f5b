static int *volatile nowhere;

int main(void)
{
    *nowhere = 1;
    return 0;
}
