import subprocess, os, sys, random
out = subprocess.run(['dpkg-query','-W','-f','\t${Package}\n${db-fsys:Files}'],capture_output=True).stdout.decode('utf8','surrogateescape').split('\n')
listed = {l[1:] for l in out if l.startswith(' /')}
paths = set(listed)
merged = ('/bin','/sbin','/lib','/lib32','/lib64','/libx32')
for p in listed:
    paths.add('/usr'+p); paths.add(p+'x'); paths.add(os.path.realpath(p))
    if p.startswith('/usr/'): paths.add(p[4:])
    paths.add(os.path.dirname(p))
paths = sorted(p for p in paths if p and '\n' not in p)
print(len(listed), 'listed', len(paths), 'asked')
def esc(p): return ''.join('\\'+c if c in '*?[\\' else c for c in p)
def first(p): return '/'+p.split('/')[1]
def before(p):
    return p[4:] if p.startswith('/usr/') and first(p[4:]) in merged else None
raw = {}
# as the single question asks: -S with the pattern, the smallest bare name
def ask(batch):
    o = subprocess.run(['dpkg-query','-S','--']+[esc(p) for p in batch],capture_output=True,env={'LC_ALL':'C','PATH':os.environ['PATH']}).stdout.decode('utf8','surrogateescape')
    for l in o.split('\n'):
        if ': ' not in l or l.startswith('diversion ') or l.startswith('local diversion'): continue
        names, path = l.split(': ',1)
        raw[path] = min(n.split(':')[0] for n in names.split(', '))
special = [p for p in paths if esc(p)!=p]; plain=[p for p in paths if esc(p)==p]
for i in range(0,len(plain),1500): ask(plain[i:i+1500])
for i in range(0,len(special),50): ask(special[i:i+50])
want = {}
for p in paths:
    w = raw.get(p,'')
    if not w and before(p): w = raw.get(before(p),'')
    want[p]=w
got = subprocess.run(['/tmp/b/owners']+sys.argv[1:],input='\n'.join(paths).encode('utf8','surrogateescape'),stdout=subprocess.PIPE).stdout.decode('utf8','surrogateescape')
got = dict(l.rsplit('\t',1) for l in got.split('\n') if l)
bad=[(p,want[p],got.get(p)) for p in paths if want[p]!=got.get(p)]
print(len(bad),'differ', bad[:10], sum(1 for p in paths if want[p]), 'owned')
