// Shortens a script as the package's build does, with the same blind spots: comments go, runs of white space become one
// blank or line end, and a slash begins a regular expression only behind one of a few characters. Behind `=>` it does not,
// and a quote in such an expression then swallows what follows.

const before_expression = '(,=:[!&|?+-~*{};\n';

function is_word(c) {
    return /[A-Za-z0-9_$\\]/.test(c) || c > '\x7e';
}

// The end of a text that begins at `start` with its quote.
function end_of_text(source, start) {
    const quote = source[start];
    for (let i = start + 1; i < source.length; i++) {
        if (source[i] === '\\')
            i++;
        else if (source[i] === quote)
            return i + 1;
        else if (source[i] === '\n' && quote !== '`')
            break;
    }
    throw new Error(`minify: unterminated text: ${source.slice(start, start + 40)}`);
}

function end_of_expression(source, start) {
    let in_class = false;
    for (let i = start + 1; i < source.length && source[i] !== '\n'; i++) {
        if (source[i] === '\\')
            i++;
        else if (source[i] === '[')
            in_class = true;
        else if (source[i] === ']')
            in_class = false;
        else if (source[i] === '/' && !in_class)
            return i + 1;
    }
    throw new Error(`minify: unterminated regular expression: ${source.slice(start, start + 40)}`);
}

// White space between two characters: a line end stays where a statement may end at it, a blank between words.
function gap(before, after, had_line_end) {
    if (before === '')
        return '';
    if (had_line_end) {
        const may_end = is_word(before) || '}])+-"\'`'.includes(before);
        const may_begin = is_word(after) || '{[(+-!~"\'`'.includes(after);
        return may_end && may_begin ? '\n' : '';
    }
    const joined = (is_word(before) && is_word(after)) || (before === after && '+-'.includes(after));
    return joined ? ' ' : '';
}

export function minify(source) {
    let result = '';
    let i = 0;
    while (i < source.length) {
        let white = false;
        let line_end = false;
        for (;;) {
            if (/\s/.test(source[i] ?? '')) {
                white = true;
                line_end ||= source[i] === '\n';
                i++;
            } else if (source.startsWith('//', i)) {
                while (i < source.length && source[i] !== '\n')
                    i++;
                white = true;
            } else if (source.startsWith('/*', i)) {
                i = source.indexOf('*/', i) + 2;
                white = true;
            } else {
                break;
            }
        }
        if (i >= source.length)
            break;
        const before = result.slice(-1);
        if (white)
            result += gap(before, source[i], line_end);
        let end = i + 1;
        if ('"\'`'.includes(source[i]))
            end = end_of_text(source, i);
        else if (source[i] === '/' && (before === '' || before_expression.includes(before) || /\breturn\s?$/.test(result)))
            end = end_of_expression(source, i);
        result += source.slice(i, end);
        i = end;
    }
    return result;
}
