# Turns the headers' plain comments into Doxygen's commands, so that the comments stay easy to read and the
# names in them are still held against the declarations:
#
#    * cache, other  what they are      ->   * @param cache,other what they are
#    * Returns 0 ...                    ->   * @return 0 ...
#    * Threads ...                      ->   * @par Threads
#
# Doxygen lets enumerations and their values pass without a comment; here they get one that links to nothing,
# which it does report. Lines are replaced one for one, so that messages name the header's own lines.
/^ \* [A-Za-z_][A-Za-z_0-9]*(, [A-Za-z_][A-Za-z_0-9]*)*  +[^ ]/ {
    match($0, /  +[^ ]/)
    names = substr($0, 4, RSTART - 4)
    gsub(/, /, ",", names)
    $0 = " * @param " names " " substr($0, RSTART + RLENGTH - 1)
}
/^ \* Returns / { sub(/Returns /, "@return ") }
/^ \* Threads / { sub(/Threads /, "@par Threads ") }

/^ *(typedef )?enum / {
    in_enum = 1
    if (!after_comment)
        $0 = "/** #enum_lacks_a_comment */ " $0
}
/^ *}/ { in_enum = 0 }
in_enum && /^ *[A-Za-z_]/ && !/[{]|\/\*\*/ && !after_comment { $0 = $0 " /**< #value_lacks_a_comment */" }
{ after_comment = /\*\/$/ && !/\/\*\*</ }
{ print }
